// A download's name comes from the page or the address. Whatever the text, the name kept must be a
// plain, visible file name that stays inside the folder it is joined to.
#include <QByteArray>
#include <QDir>
#include <QString>

#include <cstdlib>

#include "fuzzsupport.h"
#include "updates/downloadfile.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    FuzzSupport::init(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Both ways a page's text arrives: UTF-8 over the bridge, UTF-16 code units as they stand.
    const QByteArray bytes(reinterpret_cast<const char*>(data), int(size));
    const QString inputs[] = { QString::fromUtf8(bytes),
        QString::fromUtf16(reinterpret_cast<const char16_t*>(data), int(size / 2)) };
    const QString folder = QStringLiteral("/home/u/Downloads");
    for (const QString& input : inputs) {
        const QString name = DownloadFile::sanitizedName(input);
        if (name.isEmpty() || name.startsWith(QLatin1Char('.')) || name.contains(QLatin1Char('/'))
            || name.contains(QLatin1Char('\\')) || name.toUtf8().size() > 200 || name != name.trimmed())
            abort();
        for (const uint c : name.toUcs4()) {
            if (QChar::category(c) == QChar::Other_Control || QChar::category(c) == QChar::Other_Format)
                abort();
        }
        // No half of a character: the name survives the file system's UTF-8 unchanged.
        if (QString::fromUtf8(name.toUtf8()) != name)
            abort();
        const QString joined = QDir::cleanPath(folder + QLatin1Char('/') + name);
        if (!joined.startsWith(folder + QLatin1Char('/')) || joined.mid(folder.size() + 1) != name)
            abort();
        // Sanitising twice changes nothing.
        if (DownloadFile::sanitizedName(name) != name)
            abort();
    }
    return 0;
}
