// The eleven tools of the "Notion" integration: reading and writing the
// user's workspace (pages, databases, blocks, comments, users) through the
// Notion REST API with the integration token.
#pragma once

#include "tools/LocalTool.h"
#include "tools/ToolService.h"

#include <QByteArray>
#include <QJsonObject>
#include <QUrlQuery>

#include <functional>
#include <optional>

// What the eleven share: the service, the token, the API version and how a
// failed answer reads.
class NotionTool : public LocalTool
{
public:
    explicit NotionTool(ToolService service) : m_service(std::move(service)) {}

    QJsonObject parameterSchema() const override;
    bool requiresAPIKey() const override { return true; }

    // The API version every request names.
    static QByteArray apiVersion() { return "2022-06-28"; }
    // The secure-store item of the default database of new pages.
    static QString databaseItem();

protected:
    using OnAnswer = std::function<void(const QJsonObject& answer)>;

    // Sends `method` to `path` (with `query` and, when given, `body`); an
    // answer of 2xx that is a JSON object goes to `onAnswer`, anything else
    // ends the call with its error.
    void send(const ToolInvocation& call, const QByteArray& method, const QString& path,
              const QUrlQuery& query, const std::optional<QJsonObject>& body, const Done& done,
              OnAnswer onAnswer) const;
    // The key and each of `required` present; else the call has failed.
    bool checked(const ToolInvocation& call, const QStringList& required, const Done& done) const;
    const ToolService& service() const { return m_service; }

private:
    const ToolService m_service;
};

class NotionSearchTool : public NotionTool
{
public:
    using NotionTool::NotionTool;
    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    void execute(const ToolInvocation& call, Done done) override;
};

class NotionGetPageTool : public NotionTool
{
public:
    using NotionTool::NotionTool;
    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    void execute(const ToolInvocation& call, Done done) override;
};

class NotionGetDatabaseTool : public NotionTool
{
public:
    using NotionTool::NotionTool;
    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    void execute(const ToolInvocation& call, Done done) override;
};

class NotionQueryDatabaseTool : public NotionTool
{
public:
    using NotionTool::NotionTool;
    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    void execute(const ToolInvocation& call, Done done) override;
};

class NotionGetUserTool : public NotionTool
{
public:
    using NotionTool::NotionTool;
    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    void execute(const ToolInvocation& call, Done done) override;
};

class NotionCreatePageTool : public NotionTool
{
public:
    using NotionTool::NotionTool;
    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    void execute(const ToolInvocation& call, Done done) override;
};

class NotionUpdatePageTool : public NotionTool
{
public:
    using NotionTool::NotionTool;
    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    void execute(const ToolInvocation& call, Done done) override;
};

class NotionCreateCommentTool : public NotionTool
{
public:
    using NotionTool::NotionTool;
    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    void execute(const ToolInvocation& call, Done done) override;
};

class NotionGetCommentsTool : public NotionTool
{
public:
    using NotionTool::NotionTool;
    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    void execute(const ToolInvocation& call, Done done) override;
};

class NotionAddBlockTool : public NotionTool
{
public:
    using NotionTool::NotionTool;
    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    void execute(const ToolInvocation& call, Done done) override;
};

class NotionListAllUsersTool : public NotionTool
{
public:
    using NotionTool::NotionTool;
    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    void execute(const ToolInvocation& call, Done done) override;
};
