// Test support: where the source tree and the built binaries are, and a
// temporary home whose XDG folders replace the user's for the life of the object.
#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QTemporaryDir>

class TestPaths
{
public:
    static QString sourceDirectory();
    static QString binaryDirectory(); // where quillmoss and the tests are built
    static QString sharedTestData();  // speech clips and test models
    // A whole file; empty when it cannot be read.
    static QByteArray readFile(const QString& path);
};

class TemporaryHome
{
public:
    // Points HOME and XDG_CONFIG_HOME, XDG_STATE_HOME, XDG_CACHE_HOME,
    // XDG_DATA_HOME at fresh folders of a temporary directory.
    TemporaryHome();
    // Restores the previous values.
    ~TemporaryHome();
    TemporaryHome(const TemporaryHome&) = delete;
    TemporaryHome& operator=(const TemporaryHome&) = delete;

    QString path() const { return m_directory.path(); }

private:
    QTemporaryDir m_directory;
    QList<QPair<QByteArray, QByteArray>> m_saved;
};
