// The two tools of the "Resend" integration: sending an e-mail with the
// user's key and sender, and ready-made sales e-mail templates (no network).
#pragma once

#include "tools/LocalTool.h"
#include "tools/ToolService.h"

#include <QString>
#include <QStringList>

#include <optional>

struct ResendEmailRequest
{
    QString from;
    QStringList to;
    QString subject;
    QString text;
    std::optional<QString> html;
    std::optional<QStringList> cc;
    std::optional<QStringList> bcc;
    std::optional<QStringList> replyTo;
    std::optional<QString> scheduledAt;

    // The body as sent: optional keys only when given.
    QJsonObject toJson() const;
};

struct ResendEmailResponse
{
    QString id;
    std::optional<QString> createdAt;
};

namespace ResendResults {

// The accepted e-mail; nothing, with `error` saying why, for a body without an "id".
std::optional<ResendEmailResponse> decodeResponse(const QByteArray& body, QString* error);
// The error answer's "message".
std::optional<QString> errorMessage(const QByteArray& body);
QString formatConfirmation(const ResendEmailRequest& request, const ResendEmailResponse& response);

// "name@example.com" or "Name <name@example.com>": what the service takes as
// an address. Checked before anything is sent, so a typo costs no request.
bool isEmailAddress(const QString& address);

// The template for `templateType` (any case, aliases included), or the list
// of the available ones.
QString emailTemplate(const QString& templateType);

} // namespace ResendResults

class ResendSendEmailTool : public LocalTool
{
public:
    explicit ResendSendEmailTool(ToolService service) : m_service(std::move(service)) {}

    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    QJsonObject parameterSchema() const override;
    bool requiresAPIKey() const override { return true; }
    void execute(const ToolInvocation& call, Done done) override;

    // The secure-store item of the default sender.
    static QString senderItem();

private:
    const ToolService m_service;
};

// Needs no key: the templates are part of the program.
class ResendEmailTemplatesTool : public LocalTool
{
public:
    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    QJsonObject parameterSchema() const override;
    void execute(const ToolInvocation& call, Done done) override;
};
