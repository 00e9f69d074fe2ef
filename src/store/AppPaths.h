// Where Quillmoss keeps its files: the user's Documents folder and the XDG
// config, state and cache directories.
#pragma once

#include <QString>

class AppPaths
{
public:
    // The user's Documents folder, created when missing.
    static QString documentsDirectory();
    // $XDG_CONFIG_HOME/quillmoss (settings).
    static QString configDirectory();
    // $XDG_STATE_HOME/quillmoss (logs and other state worth keeping).
    static QString stateDirectory();
    // $XDG_CACHE_HOME/quillmoss (anything that can be fetched again).
    static QString cacheDirectory();
    // stateDirectory()/logs.
    static QString logsDirectory();
    // configDirectory()/settings.json.
    static QString settingsFilePath();

    // Creates `path` with its parents; false (and a log line) when it cannot.
    static bool ensureDirectory(const QString& path);
};
