#pragma once

#include "seam.h"

#include <QString>

// What the operating system says about its own release. The program reports a Windows-style release
// name to the page and the analytics; systems that aren't one of those releases report none.
class OsVersionSource : public Seam<OsVersionSource>
{
public:
    // The release codes, with the numbers the toolkit's Windows version query gives them.
    enum WindowsVersion {
        WV_None = 0x00,
        WV_32s = 0x01,
        WV_95 = 0x02,
        WV_98 = 0x03,
        WV_Me = 0x04,
        WV_NT = 0x10,
        WV_2000 = 0x20,
        WV_XP = 0x30,
        WV_2003 = 0x40,
        WV_VISTA = 0x80,
        WV_WINDOWS7 = 0x90,
        WV_WINDOWS8 = 0xa0,
        WV_WINDOWS8_1 = 0xb0,
    };

    struct CommandOutput
    {
        QString standardOutput;
        QString standardError;
    };

    virtual ~OsVersionSource() = default;

    // One of the codes above, WV_None when the system is none of them. Any other number counts as none too.
    virtual int windowsVersion() = 0;
    // The system's own version line ("ver"), for the case the code can't settle. Waits up to
    // `timeoutMs`; whatever was printed by then is returned.
    virtual CommandOutput versionCommand(int timeoutMs) = 0;

private:
    friend class Seam<OsVersionSource>;
    static OsVersionSource* systemInstance();
};
