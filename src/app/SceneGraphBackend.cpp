#include "app/SceneGraphBackend.h"

#include "core/Logging.h"

#include <QDir>
#include <QQuickWindow>
#include <QSGRendererInterface>

namespace SceneGraphBackend {

bool hasRenderNode(const QString& renderNodeDirectory)
{
    return !QDir(renderNodeDirectory)
                .entryList({QStringLiteral("renderD*")}, QDir::System | QDir::Files)
                .isEmpty();
}

bool chooseForThisMachine(const QString& renderNodeDirectory)
{
    if (qEnvironmentVariableIsSet("QT_QUICK_BACKEND") ||
        qEnvironmentVariableIsSet("QSG_RHI_BACKEND"))
        return false;
    if (hasRenderNode(renderNodeDirectory))
        return false;
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    qCInfo(lcApp) << "🖥️ No GPU found: drawing with the software renderer";
    return true;
}

} // namespace SceneGraphBackend
