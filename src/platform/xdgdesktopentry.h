#pragma once

#include <QString>

// Text rules of freedesktop.org desktop entry files (.desktop), for the entries this program writes.
class XdgDesktopEntry
{
public:
    // A value of type string: backslash, line breaks and tabs escaped, a leading blank kept.
    static QString escapeValue(const QString& value);
    // One argument of an Exec key, quoted when it holds a reserved character, "%" doubled so no
    // part of a path reads as a field code. The result still goes through escapeValue.
    static QString execArgument(const QString& argument);
};
