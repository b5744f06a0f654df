#pragma once

#include <QString>

// Each test process runs with HOME and the XDG folders in a temporary folder of its own, made before
// QApplication exists, so nothing a test does can reach the real user's settings, cookies or log.
namespace TestEnvironment {
QString homePath();
}
