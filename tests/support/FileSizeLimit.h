// Test support: caps the size of any file this process writes, as a full disk
// would, for the life of the object.
#pragma once

#include <csignal>
#include <sys/resource.h>

class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes) : m_previousHandler(std::signal(SIGXFSZ, SIG_IGN))
    {
        // SIGXFSZ ignored: past the limit write() fails with EFBIG instead of
        // killing the process.
        getrlimit(RLIMIT_FSIZE, &m_saved);
        rlimit limited = m_saved;
        limited.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limited);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_saved);
        std::signal(SIGXFSZ, m_previousHandler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    void (*m_previousHandler)(int);
    rlimit m_saved{};
};
