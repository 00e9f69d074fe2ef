// Test support for the remote MCP service's tests: a private keyring, a
// settings file that starts empty for each test function, and the outcome of
// a connection or a sign-in waited for.
#pragma once

#include "KeyringSession.h"
#include "mcp/MCPRemoteService.h"
#include "store/KeychainManager.h"
#include "store/SettingsStore.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <memory>
#include <optional>

class McpServiceFixture
{
public:
    // Items go under their own service name, apart from any other test's.
    explicit McpServiceFixture(const QString& keychainService) : m_keychain(keychainService) {}

    // Empty when the keyring and the scratch directory are there, else why not.
    QString unavailable() const
    {
        if (!m_keyring.isRunning())
            return m_keyring.error();
        return m_directory.isValid() ? QString() : QStringLiteral("no scratch directory");
    }

    // Before each test function: fresh settings.
    void begin() { m_settings = std::make_unique<SettingsStore>(settingsPath()); }
    // After it: no settings file, no item in the keyring.
    void end()
    {
        m_settings.reset();
        QFile::remove(settingsPath());
        m_keychain.deleteAllKeys();
    }

    SettingsStore& settings() { return *m_settings; }
    KeychainManager& keychain() { return m_keychain; }

    std::unique_ptr<MCPRemoteService> makeService(MCPRemoteService::Timing timing = {})
    {
        return std::make_unique<MCPRemoteService>(*m_settings, m_keychain, timing);
    }

    // Starts something that ends in a `Done` and waits for it: nothing on
    // success, the error text, or "no outcome" when it never ended.
    static std::optional<QString>
    outcomeOf(const std::function<void(const MCPRemoteService::Done&)>& start,
              int timeoutMs = 30000)
    {
        std::optional<std::optional<QString>> outcome;
        start([&outcome](const std::optional<QString>& error) { outcome = error; });
        if (!QTest::qWaitFor([&] { return outcome.has_value(); }, timeoutMs))
            return QStringLiteral("no outcome");
        return *outcome;
    }

private:
    QString settingsPath() const { return m_directory.filePath(QStringLiteral("s.json")); }

    KeyringSession m_keyring; // before the first secure-store call
    QTemporaryDir m_directory;
    std::unique_ptr<SettingsStore> m_settings;
    KeychainManager m_keychain;
};
