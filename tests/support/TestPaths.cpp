#include "TestPaths.h"

#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;

namespace {

const QList<QPair<const char*, QString>> homeLayout = {
    {"HOME", u""_s},
    {"XDG_CONFIG_HOME", u"/.config"_s},
    {"XDG_STATE_HOME", u"/.local/state"_s},
    {"XDG_CACHE_HOME", u"/.cache"_s},
    {"XDG_DATA_HOME", u"/.local/share"_s},
};

} // namespace

QString TestPaths::sourceDirectory()
{
    return QStringLiteral(QUILLMOSS_SOURCE_DIR);
}

QString TestPaths::binaryDirectory()
{
    return QStringLiteral(QUILLMOSS_BINARY_DIR);
}

QString TestPaths::sharedTestData()
{
    return QDir::cleanPath(sourceDirectory() + u"/../shared/testdata"_s);
}

QByteArray TestPaths::readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

TemporaryHome::TemporaryHome()
{
    for (const auto& [variable, suffix] : homeLayout) {
        m_saved.append({variable, qgetenv(variable)});
        const QString path = m_directory.path() + suffix;
        QDir().mkpath(path);
        qputenv(variable, path.toUtf8());
    }
}

TemporaryHome::~TemporaryHome()
{
    for (const auto& [variable, value] : m_saved) {
        if (value.isNull()) {
            qunsetenv(variable.constData());
        } else {
            qputenv(variable.constData(), value);
        }
    }
}
