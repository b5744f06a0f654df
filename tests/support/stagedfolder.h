#pragma once

#include <QString>

// Runs a test from the staged program folder (html/, kestrelgap.iconset/), as the real program runs.
class StagedFolder
{
public:
    static QString path();
    // Makes the staged folder the working directory; returns false when the build didn't stage it.
    static bool enter();
};
