#include "tools/ResendTools.h"

#include "core/HttpClient.h"
#include "core/JsonValues.h"
#include "store/KeychainManager.h"
#include "tools/BuiltInToolDefinitions.h"
#include "tools/IntegrationCatalogue.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

QJsonObject schemaOf(const QString& identifier)
{
    return BuiltInToolDefinitions::definition(identifier)
        .value_or(QJsonObject{})
        .value(u"parameters"_s)
        .toObject();
}

// A list parameter's addresses; nothing when it was not given.
std::optional<QStringList> addresses(const QJsonObject& parameters, const QString& name)
{
    const QJsonValue value = parameters.value(name);
    if (value.isString())
        return QStringList{value.toString()};
    if (!value.isArray())
        return std::nullopt;
    QStringList list;
    for (const QJsonValue each : value.toArray()) {
        if (each.isString())
            list.append(each.toString());
    }
    return list;
}

std::optional<QString> givenString(const QJsonObject& parameters, const QString& name)
{
    const QJsonValue value = parameters.value(name);
    return value.isString() ? std::optional(value.toString()) : std::nullopt;
}

} // namespace

QJsonObject ResendEmailRequest::toJson() const
{
    QJsonObject body{{u"from"_s, from},
                     {u"to"_s, QJsonArray::fromStringList(to)},
                     {u"subject"_s, subject},
                     {u"text"_s, text}};
    if (html)
        body.insert(u"html"_s, *html);
    if (cc)
        body.insert(u"cc"_s, QJsonArray::fromStringList(*cc));
    if (bcc)
        body.insert(u"bcc"_s, QJsonArray::fromStringList(*bcc));
    if (replyTo)
        body.insert(u"reply_to"_s, QJsonArray::fromStringList(*replyTo));
    if (scheduledAt)
        body.insert(u"scheduled_at"_s, *scheduledAt);
    return body;
}

// --- decoding and formatting ----------------------------------------------------------------

std::optional<ResendEmailResponse> ResendResults::decodeResponse(const QByteArray& body,
                                                                 QString* error)
{
    const std::optional<QJsonObject> answer = parseJsonObject(body, error);
    if (!answer)
        return std::nullopt;
    const QJsonValue id = answer->value(u"id"_s);
    if (!id.isString()) {
        *error = u"\"id\" is missing"_s;
        return std::nullopt;
    }
    ResendEmailResponse response{id.toString(), std::nullopt};
    if (answer->value(u"created_at"_s).isString())
        response.createdAt = answer->value(u"created_at"_s).toString();
    return response;
}

std::optional<QString> ResendResults::errorMessage(const QByteArray& body)
{
    QString ignored;
    const std::optional<QJsonObject> answer = parseJsonObject(body, &ignored);
    if (!answer || !answer->value(u"message"_s).isString())
        return std::nullopt;
    return answer->value(u"message"_s).toString();
}

QString ResendResults::formatConfirmation(const ResendEmailRequest& request,
                                          const ResendEmailResponse& response)
{
    QStringList lines{u"**✅ Email Sent Successfully via Resend:**\n"_s,
                      u"Email ID: "_s + response.id, u"From: "_s + request.from,
                      u"To: "_s + request.to.join(u", "_s), u"Subject: "_s + request.subject};
    if (response.createdAt)
        lines.append(u"Sent At: "_s + *response.createdAt);
    lines.append(request.html ? u"Format: HTML + Text\n"_s : u"Format: Plain Text\n"_s);
    if (request.cc)
        lines.append(u"CC: "_s + request.cc->join(u", "_s));
    if (request.bcc)
        lines.append(u"BCC: "_s + request.bcc->join(u", "_s));
    if (request.replyTo)
        lines.append(u"Reply-To: "_s + request.replyTo->join(u", "_s));
    if (request.scheduledAt)
        lines.append(u"Scheduled For: "_s + *request.scheduledAt);
    return lines.join(u'\n');
}

bool ResendResults::isEmailAddress(const QString& address)
{
    // One local part and one domain with a dot, no spaces or angle brackets
    // inside; a display name may precede the address in angle brackets.
    static const QRegularExpression plain(uR"(^[^\s@<>",;]+@[^\s@<>",;.]+(\.[^\s@<>",;.]+)+$)"_s);
    static const QRegularExpression named(uR"(^[^<>@]*<([^<>]+)>$)"_s);
    const QString trimmed = address.trimmed();
    if (trimmed.size() > 320)
        return false;
    const QRegularExpressionMatch withName = named.match(trimmed);
    return plain.match(withName.hasMatch() ? withName.captured(1) : trimmed).hasMatch();
}

// --- sending --------------------------------------------------------------------------------

QString ResendSendEmailTool::identifier() const
{
    return u"resend_send_email"_s;
}

QString ResendSendEmailTool::name() const
{
    return u"Resend Send Email"_s;
}

QString ResendSendEmailTool::description() const
{
    return u"Send professional emails using Resend with support for HTML content, scheduling, "
           u"and advanced delivery options.\n\n"
           u"**Best for:** Sending follow-up emails, meeting summaries, proposals, or any "
           u"sales-related communications.\n"
           u"**Returns:** Confirmation of email sent with tracking ID and delivery details."_s;
}

QJsonObject ResendSendEmailTool::parameterSchema() const
{
    return schemaOf(identifier());
}

QString ResendSendEmailTool::senderItem()
{
    return IntegrationCatalogue::fieldItemName(u"Resend"_s, u"sender_email"_s);
}

void ResendSendEmailTool::execute(const ToolInvocation& call, Done done)
{
    const auto fail = [&done](const LocalToolError& error) { done(ToolOutcome::failure(error)); };
    if (!call.apiKey)
        return fail(LocalToolError::missingAPIKey(name()));
    const std::optional<QString> to = givenString(call.parameters, u"to"_s);
    const std::optional<QString> subject = givenString(call.parameters, u"subject"_s);
    const std::optional<QString> text = givenString(call.parameters, u"text"_s);
    if (!to || !subject || !text)
        return fail(LocalToolError::missingParameter(!to        ? u"to"_s
                                                     : !subject ? u"subject"_s
                                                                : u"text"_s));
    ResendEmailRequest request;
    request.to = {*to};
    request.subject = *subject;
    request.text = *text;

    // The sender: given with the call, else the default stored with the key.
    if (const std::optional<QString> from = givenString(call.parameters, u"from"_s);
        from && !from->trimmed().isEmpty()) {
        request.from = from->trimmed();
    } else if (const std::optional<QString> stored = call.keychain.readKey(senderItem());
               stored && !stored->trimmed().isEmpty()) {
        request.from = stored->trimmed();
    } else {
        return fail(LocalToolError::executionFailed(
            u"No sender email provided. Please provide 'from' parameter or configure a default "
            u"sender email in Resend settings."_s));
    }
    if (!ResendResults::isEmailAddress(request.from))
        return fail(LocalToolError::invalidParameter(u"from"_s, u"not an e-mail address"_s));

    request.html = givenString(call.parameters, u"html"_s);
    request.scheduledAt = givenString(call.parameters, u"scheduled_at"_s);
    request.cc = addresses(call.parameters, u"cc"_s);
    request.bcc = addresses(call.parameters, u"bcc"_s);
    request.replyTo = addresses(call.parameters, u"reply_to"_s);
    for (const auto& [name, list] :
         {std::pair{u"to"_s, std::optional(request.to)}, std::pair{u"cc"_s, request.cc},
          std::pair{u"bcc"_s, request.bcc}, std::pair{u"reply_to"_s, request.replyTo}}) {
        if (!list)
            continue;
        for (const QString& address : *list) {
            if (!ResendResults::isEmailAddress(address)) {
                return fail(LocalToolError::invalidParameter(
                    name, u"\"%1\" is not an e-mail address"_s.arg(address)));
            }
        }
    }

    const std::optional<QUrl> url = m_service.endpoint(u"/emails"_s);
    if (!url)
        return fail(LocalToolError::executionFailed(u"Invalid Resend API URL"_s));
    const HttpRequest post = HttpRequest::postJson(*url, request.toJson())
                                 .acceptingJson()
                                 .withBearer(*call.apiKey)
                                 .withTimeout(m_service.timeout)
                                 .withMaxBodySize(m_service.maxBodySize);
    call.http.send(post, [request, done](const HttpResponse& response) {
        if (!response.answered()) {
            done(ToolOutcome::failure(transportFailure(response)));
            return;
        }
        if (response.status >= 400) {
            const QString message = ResendResults::errorMessage(response.body)
                                        .value_or(QString::number(response.status));
            done(ToolOutcome::failure(
                LocalToolError::executionFailed(u"Resend API error: "_s + message)));
            return;
        }
        QString error;
        const std::optional<ResendEmailResponse> accepted =
            ResendResults::decodeResponse(response.body, &error);
        if (!accepted) {
            done(ToolOutcome::failure(LocalToolError::executionFailed(
                u"Resend API error: unreadable answer ("_s + error + u')')));
            return;
        }
        done(ToolOutcome::success(ResendResults::formatConfirmation(request, *accepted)));
    });
}

// --- templates ------------------------------------------------------------------------------

QString ResendEmailTemplatesTool::identifier() const
{
    return u"resend_email_templates"_s;
}

QString ResendEmailTemplatesTool::name() const
{
    return u"Resend Email Templates"_s;
}

QString ResendEmailTemplatesTool::description() const
{
    return u"Get pre-built email templates for common sales and business scenarios.\n\n"
           u"**Best for:** Quick access to professional email templates for follow-ups, meeting "
           u"invitations, proposals, and more.\n"
           u"**Returns:** Template content with placeholders for customization."_s;
}

QJsonObject ResendEmailTemplatesTool::parameterSchema() const
{
    // The backend is offered five names; the tool also takes their aliases in
    // any case, and answers anything else with the list, so no choice is
    // refused before it runs.
    QJsonObject schema = schemaOf(identifier());
    QJsonObject properties = schema.value(u"properties"_s).toObject();
    QJsonObject templateType = properties.value(u"template_type"_s).toObject();
    templateType.remove(u"enum"_s);
    properties.insert(u"template_type"_s, templateType);
    schema.insert(u"properties"_s, properties);
    return schema;
}

void ResendEmailTemplatesTool::execute(const ToolInvocation& call, Done done)
{
    const QJsonValue type = call.parameters.value(u"template_type"_s);
    if (!type.isString()) {
        done(ToolOutcome::failure(LocalToolError::missingParameter(u"template_type"_s)));
        return;
    }
    done(ToolOutcome::success(ResendResults::emailTemplate(type.toString())));
}
