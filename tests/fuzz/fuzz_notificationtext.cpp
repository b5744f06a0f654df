// The text of a balloon comes from the page, which may send it URL-encoded or not. Whatever it
// sends, decoding must not fail: a non-empty text never turns into an empty balloon or a longer
// one, a text that wasn't encoded is shown as sent, and a text encoded the way the page encodes
// it (encodeURIComponent, or a form's "+" for blanks) comes back exactly.
#include <QByteArray>
#include <QString>
#include <QUrl>

#include <cstdlib>

#include "fuzzsupport.h"
#include "web/indexwindow.h"

namespace {

void checkRoundTrip(const QString& original, const QString& encoded)
{
    // With two signs or fewer the text is taken as plain, encoded or not.
    if (encoded.count(QLatin1Char('%')) > 2 && IndexWindow::decodeNotificationText(encoded) != original)
        abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    FuzzSupport::init(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), int(size));

    const QString shown = IndexWindow::decodeNotificationText(text);
    // An encoded NUL ends the text, as the notification service would end it.
    if (shown.size() > text.size() || (shown.isEmpty() && !text.isEmpty() && !text.contains(QLatin1String("%00"))))
        abort();
    if (text.count(QLatin1Char('%')) <= 2 && shown != text)
        abort();
    // A trailing sign starts no escape, so nobody encoded the text it ends.
    const QString plain = text + QStringLiteral(" 100%");
    if (IndexWindow::decodeNotificationText(plain) != plain)
        abort();

    if (!text.contains(QChar(0))) {
        checkRoundTrip(text, QString::fromLatin1(QUrl::toPercentEncoding(text, "!*'()")));
        checkRoundTrip(text, QString::fromLatin1(QUrl::toPercentEncoding(text, " !*'()").replace(' ', '+')));
    }
    return 0;
}
