#include "cli/Cli.h"

#include <QCoreApplication>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("quillmoss"));
    QCoreApplication::setApplicationVersion(QStringLiteral(QUILLMOSS_VERSION));
    return runCli(QCoreApplication::arguments());
}
