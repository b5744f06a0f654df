#include "fileopener.h"

#include <QDesktopServices>
#include <QUrl>

namespace {

// The desktop's own association: the platform theme's handler, or xdg-open where there is none.
class XdgFileOpener : public FileOpener
{
public:
    bool openFile(const QString& path) override { return QDesktopServices::openUrl(QUrl::fromLocalFile(path)); }
};

} // namespace

FileOpener* FileOpener::systemOpener()
{
    static XdgFileOpener opener;
    return &opener;
}
