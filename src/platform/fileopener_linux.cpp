#include "fileopener.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QFileInfo>
#include <QUrl>

#include "core/logger.h"

namespace {
const QString logModule = QStringLiteral("fileopener");

// Long enough for the bus to start a file manager that isn't running yet.
const int showItemsTimeoutMs = 10000;

void openFolderOf(const QString& path)
{
    const QString folder = QFileInfo(path).absolutePath();
    Logger::Info(logModule, QStringLiteral("[showInFolder] - opening folder=") + folder);
    QDesktopServices::openUrl(QUrl::fromLocalFile(folder));
}

class FreedesktopFileOpener : public FileOpener
{
public:
    void openFile(const QString& path) override
    {
        const bool started = QDesktopServices::openUrl(QUrl::fromLocalFile(path));
        Logger::Info(logModule, QStringLiteral("[openFile] - path=") + path + QStringLiteral(", started=")
                + QVariant(started).toString());
    }

    // The file manager interface selects the file; a desktop without one at least gets the folder.
    void showInFolder(const QString& path) override
    {
        QDBusConnection bus = QDBusConnection::sessionBus();
        if (!bus.isConnected()) {
            openFolderOf(path);
            return;
        }
        QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.FileManager1"),
            QStringLiteral("/org/freedesktop/FileManager1"), QStringLiteral("org.freedesktop.FileManager1"),
            QStringLiteral("ShowItems"));
        const QString uri = QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toString(QUrl::FullyEncoded);
        call << QStringList { uri } << QString();
        // Asynchronous: a file manager that takes its time to start must not freeze the windows.
        auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, showItemsTimeoutMs));
        QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [path](QDBusPendingCallWatcher* done) {
            if (done->isError()) {
                Logger::Info(logModule, QStringLiteral("[showInFolder] - no file manager: ") + done->error().message());
                openFolderOf(path);
            }
            done->deleteLater();
        });
    }
};
} // namespace

FileOpener* FileOpener::systemInstance()
{
    static FreedesktopFileOpener opener;
    return &opener;
}
