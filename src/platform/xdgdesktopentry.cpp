#include "xdgdesktopentry.h"

QString XdgDesktopEntry::escapeValue(const QString& value)
{
    QString escaped;
    escaped.reserve(value.size());
    for (int i = 0; i < value.size(); ++i) {
        const QChar c = value.at(i);
        if (c == QLatin1Char('\\'))
            escaped += QLatin1String("\\\\");
        else if (c == QLatin1Char('\n'))
            escaped += QLatin1String("\\n");
        else if (c == QLatin1Char('\r'))
            escaped += QLatin1String("\\r");
        else if (c == QLatin1Char('\t'))
            escaped += QLatin1String("\\t");
        else if (c == QLatin1Char(' ') && i == 0)
            escaped += QLatin1String("\\s"); // readers trim the blanks after "="
        else
            escaped += c;
    }
    return escaped;
}

QString XdgDesktopEntry::execArgument(const QString& argument)
{
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    bool needsQuotes = argument.isEmpty();
    for (const QChar c : argument)
        needsQuotes = needsQuotes || reserved.contains(c);

    QString text = argument;
    text.replace(QLatin1Char('%'), QLatin1String("%%"));
    if (!needsQuotes)
        return text;

    QString quoted = QStringLiteral("\"");
    for (const QChar c : text) {
        if (c == QLatin1Char('"') || c == QLatin1Char('`') || c == QLatin1Char('$') || c == QLatin1Char('\\'))
            quoted += QLatin1Char('\\');
        quoted += c;
    }
    quoted += QLatin1Char('"');
    return quoted;
}
