#include "stagedfolder.h"

#include <QDir>

QString StagedFolder::path()
{
    return QString::fromLocal8Bit(qgetenv("KESTRELGAP_STAGE_DIR"));
}

bool StagedFolder::enter()
{
    const QString stage = path();
    return !stage.isEmpty() && QDir(stage).exists(QStringLiteral("html/start.html")) && QDir::setCurrent(stage);
}
