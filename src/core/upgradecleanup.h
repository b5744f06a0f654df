#pragma once

#include <QString>

// Tidying after an update or an older install; run by start-up, once each per program life.

// Empties the web disk cache once for each change of the build's version, so a new build doesn't
// run on old cached page assets, and records the version.
void doUpgradeCleanup();
// The same against the given version instead of the build's own.
void doUpgradeCleanup(const QString& currentVersion);

// Removes what earlier generations of the program left behind.
void docleanup();

// Recursive delete. A missing folder counts as removed; stops at the first entry it can't remove.
bool removeDir(const QString& dirName);
