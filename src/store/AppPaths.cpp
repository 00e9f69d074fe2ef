#include "store/AppPaths.h"

#include "core/Logging.h"

#include <QDir>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

const auto appFolder = u"quillmoss"_s;

// An XDG base directory: the variable when it holds an absolute path (relative
// ones are invalid and must be ignored), else the default under $HOME.
QString xdgDirectory(const char* variable, const QString& homeRelativeDefault)
{
    const QString value = qEnvironmentVariable(variable);
    if (!value.isEmpty() && QDir::isAbsolutePath(value)) {
        return QDir::cleanPath(value);
    }
    return QDir::home().filePath(homeRelativeDefault);
}

} // namespace

QString AppPaths::documentsDirectory()
{
    QString path = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    if (path.isEmpty()) {
        path = QDir::home().filePath(u"Documents"_s);
    }
    ensureDirectory(path);
    return path;
}

QString AppPaths::configDirectory()
{
    return QDir(xdgDirectory("XDG_CONFIG_HOME", u".config"_s)).filePath(appFolder);
}

QString AppPaths::stateDirectory()
{
    return QDir(xdgDirectory("XDG_STATE_HOME", u".local/state"_s)).filePath(appFolder);
}

QString AppPaths::cacheDirectory()
{
    return QDir(xdgDirectory("XDG_CACHE_HOME", u".cache"_s)).filePath(appFolder);
}

QString AppPaths::logsDirectory()
{
    return QDir(stateDirectory()).filePath(u"logs"_s);
}

QString AppPaths::settingsFilePath()
{
    return QDir(configDirectory()).filePath(u"settings.json"_s);
}

bool AppPaths::ensureDirectory(const QString& path)
{
    if (QDir().mkpath(path)) {
        return true;
    }
    qCWarning(lcApp).noquote() << u"❌ Could not create the folder %1"_s.arg(path);
    return false;
}
