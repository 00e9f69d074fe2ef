// Test support: runs the built quillmoss binary in this process's environment
// (which the keyring session, sound server and temporary home point at
// themselves), or in the one given.
#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <memory>

namespace CliRunner {

struct Result
{
    int exitCode = -1; // -1: crashed or did not finish
    QString out;
    QString err;
};

// Starts it and returns at once.
std::unique_ptr<QProcess>
start(const QStringList& arguments,
      const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment());

// Runs it to the end with `input` on standard input.
Result run(const QStringList& arguments, const QByteArray& input = {},
           const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment());

// Reads standard output into `seen` until it holds `text` `count` times; false
// when the process went quiet for 15 seconds first.
bool waitForOutput(QProcess& process, QString& seen, const QString& text, int count = 1);

} // namespace CliRunner
