#include "OAuthTestBrowser.h"

#include <QByteArrayList>
#include <QEventLoop>
#include <QHash>
#include <QNetworkAccessManager>
#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QTimer>

#include <chrono>
#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto requestTimeout = 30s;
// Login, consent and the redirects between them take a handful; more is a loop.
constexpr int maxSteps = 20;

QString decodeEntities(QString text)
{
    static const QRegularExpression entity(u"&(#x[0-9a-fA-F]+|#[0-9]+|[a-zA-Z]+);"_s);
    QString decoded;
    qsizetype from = 0;
    for (auto it = entity.globalMatch(text); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        decoded.append(QStringView(text).mid(from, match.capturedStart() - from));
        const QString name = match.captured(1);
        if (name.startsWith(u"#x"_s, Qt::CaseInsensitive))
            decoded += QChar(name.mid(2).toUShort(nullptr, 16));
        else if (name.startsWith(u'#'))
            decoded += QChar(name.mid(1).toUShort());
        else if (name == u"amp"_s)
            decoded += u'&';
        else if (name == u"lt"_s)
            decoded += u'<';
        else if (name == u"gt"_s)
            decoded += u'>';
        else if (name == u"quot"_s)
            decoded += u'"';
        else if (name == u"apos"_s)
            decoded += u'\'';
        else
            decoded += match.captured(0);
        from = match.capturedEnd();
    }
    return decoded.append(QStringView(text).mid(from));
}

// The attributes of one tag, names lower-cased; a bare attribute has an empty value.
QHash<QString, QString> attributesOf(const QString& tag)
{
    static const QRegularExpression attribute(
        uR"re(([^\s=/>"']+)(?:\s*=\s*(?:"([^"]*)"|'([^']*)'|([^\s"'=<>`]+)))?)re"_s);
    QHash<QString, QString> attributes;
    for (auto it = attribute.globalMatch(tag); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        const QString name = match.captured(1).toLower();
        if (!attributes.contains(name))
            attributes.insert(
                name, decodeEntities(match.captured(2) + match.captured(3) + match.captured(4)));
    }
    return attributes;
}

// The visible text of some HTML, in one line.
QString textOf(const QString& html)
{
    static const QRegularExpression hidden(u"<(style|script|title)\\b.*?</\\1\\s*>"_s,
                                           QRegularExpression::CaseInsensitiveOption |
                                               QRegularExpression::DotMatchesEverythingOption);
    static const QRegularExpression tag(u"<[^>]*>"_s);
    QString text = html;
    text.remove(hidden).replace(tag, u" "_s);
    return decodeEntities(text).simplified();
}

// What a refusing page says: its alert when it has one, else all its text.
QString messageOf(const QString& html)
{
    static const QRegularExpression alert(u"<(\\w+)[^>]*\\brole=\"alert\"[^>]*>(.*?)</\\1\\s*>"_s,
                                          QRegularExpression::CaseInsensitiveOption |
                                              QRegularExpression::DotMatchesEverythingOption);
    const QRegularExpressionMatch match = alert.match(html);
    const QString text = textOf(match.hasMatch() ? match.captured(2) : html);
    return text.size() > 300 ? text.left(300) + u"…"_s : text;
}

// One form as the page has it: where it goes and its controls, in document order.
struct Form
{
    struct Control
    {
        bool button = false;
        QHash<QString, QString> attributes;
        QString text; // a button's caption

        QString name() const { return attributes.value(u"name"_s); }
        QString type() const
        {
            return attributes.value(u"type"_s, button ? u"submit"_s : u"text"_s).toLower();
        }
        bool submits() const { return type() == u"submit"_s || type() == u"image"_s; }
        bool isEmail() const { return !button && (type() == u"email"_s || name() == u"email"_s); }
    };

    QHash<QString, QString> attributes;
    QList<Control> controls;

    static QList<Form> allIn(const QString& html)
    {
        static const QRegularExpression form(u"<form\\b([^>]*)>(.*?)</form\\s*>"_s,
                                             QRegularExpression::CaseInsensitiveOption |
                                                 QRegularExpression::DotMatchesEverythingOption);
        static const QRegularExpression control(
            u"<input\\b([^>]*)>|<button\\b([^>]*)>(.*?)</button\\s*>"_s,
            QRegularExpression::CaseInsensitiveOption |
                QRegularExpression::DotMatchesEverythingOption);
        QList<Form> forms;
        for (auto it = form.globalMatch(html); it.hasNext();) {
            const QRegularExpressionMatch match = it.next();
            Form each{attributesOf(match.captured(1)), {}};
            for (auto inner = control.globalMatch(match.captured(2)); inner.hasNext();) {
                const QRegularExpressionMatch found = inner.next();
                const bool button = found.capturedLength(2) > 0 || found.capturedLength(3) > 0;
                each.controls.append({button,
                                      attributesOf(button ? found.captured(2) : found.captured(1)),
                                      textOf(found.captured(3))});
            }
            forms.append(std::move(each));
        }
        return forms;
    }

    const Control* email() const
    {
        for (const Control& control : controls) {
            if (control.isEmail())
                return &control;
        }
        return nullptr;
    }

    // The submit button whose value or caption is `word`; with an empty word, the first one.
    const Control* submitter(const QString& word = {}) const
    {
        for (const Control& control : controls) {
            if (!control.submits() || control.attributes.contains(u"disabled"_s))
                continue;
            if (word.isEmpty() ||
                control.attributes.value(u"value"_s).compare(word, Qt::CaseInsensitive) == 0 ||
                control.text.compare(word, Qt::CaseInsensitive) == 0)
                return &control;
        }
        return nullptr;
    }

    // The form's data set as a browser sends it when `pressed` submits it,
    // with `email` typed into its e-mail field.
    QByteArray encoded(const Control& pressed, const QString& email) const
    {
        QByteArrayList pairs;
        const auto add = [&pairs](const QString& name, const QString& value) {
            pairs << QUrl::toPercentEncoding(name) + '=' + QUrl::toPercentEncoding(value);
        };
        for (const Control& control : controls) {
            const QString type = control.type();
            if (control.name().isEmpty() || control.attributes.contains(u"disabled"_s))
                continue;
            if (control.submits() || type == u"button"_s || type == u"reset"_s) {
                if (&control == &pressed)
                    add(control.name(), control.attributes.value(u"value"_s));
                continue;
            }
            if ((type == u"checkbox"_s || type == u"radio"_s) &&
                !control.attributes.contains(u"checked"_s))
                continue;
            add(control.name(), control.isEmail() ? email : control.attributes.value(u"value"_s));
        }
        return pairs.join('&');
    }
};

} // namespace

OAuthTestBrowser::OAuthTestBrowser(QObject* parent)
    : QObject(parent), m_network(std::make_unique<QNetworkAccessManager>())
{
    // The manager owns its jar.
    m_network->setCookieJar(new QNetworkCookieJar(m_network.get()));
}

OAuthTestBrowser::~OAuthTestBrowser()
{
    if (m_reply) {
        disconnect(m_reply, nullptr, this, nullptr);
        m_reply->abort();
    }
}

void OAuthTestBrowser::open(const QUrl& authorizationUrl, Choice choice, Done done)
{
    if (isBusy() || m_done) {
        QTimer::singleShot(0, this, [done = std::move(done)] {
            done({}, u"the browser is already signing in"_s);
        });
        return;
    }
    m_origin = authorizationUrl.adjusted(QUrl::RemovePath | QUrl::RemoveQuery |
                                         QUrl::RemoveFragment | QUrl::RemoveUserInfo);
    m_choice = std::move(choice);
    m_done = std::move(done);
    m_steps = 0;
    m_pagesLoaded = 0;
    m_lastPage.clear();
    if (!staysHere(authorizationUrl)) {
        QTimer::singleShot(0, this, [this] {
            finish({}, u"the authorization URL is not an http(s) one: "_s + m_origin.toString());
        });
        return;
    }
    load(authorizationUrl);
}

OAuthTestBrowser::Result OAuthTestBrowser::run(const QUrl& authorizationUrl)
{
    return run(authorizationUrl, Choice{});
}

OAuthTestBrowser::Result OAuthTestBrowser::run(const QUrl& authorizationUrl, Choice choice)
{
    OAuthTestBrowser browser;
    QEventLoop loop;
    Result result;
    bool finished = false;
    browser.open(authorizationUrl, std::move(choice),
                 [&](const QUrl& finalUrl, const QString& error) {
                     result.finalUrl = finalUrl;
                     result.error = error;
                     finished = true;
                     loop.quit();
                 });
    if (!finished)
        loop.exec();
    result.pagesLoaded = browser.pagesLoaded();
    result.lastPage = browser.lastPage();
    return result;
}

void OAuthTestBrowser::load(const QUrl& url, const QByteArray& method, const QByteArray& form)
{
    if (++m_steps > maxSteps) {
        QTimer::singleShot(0, this, [this, url] {
            finish({}, u"more than %1 requests without an end, the last to "_s.arg(maxSteps) +
                           url.toString());
        });
        return;
    }
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    request.setTransferTimeout(static_cast<int>(std::chrono::milliseconds(requestTimeout).count()));
    request.setRawHeader("Accept", "text/html,application/xhtml+xml");
    if (method == "POST")
        request.setRawHeader("Content-Type", "application/x-www-form-urlencoded");
    m_reply = m_network->sendCustomRequest(request, method, form);
    connect(m_reply, &QNetworkReply::finished, this, &OAuthTestBrowser::answered);
}

void OAuthTestBrowser::answered()
{
    QNetworkReply* reply = m_reply;
    m_reply = nullptr;
    if (!reply)
        return;
    reply->deleteLater();
    const QUrl url = reply->url();
    const QVariant statusAttribute = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!statusAttribute.isValid()) {
        finish({}, u"cannot load %1: %2"_s.arg(url.toString(), reply->errorString()));
        return;
    }
    const int status = statusAttribute.toInt();
    const QString body = QString::fromUtf8(reply->readAll());

    if (status >= 300 && status < 400 && reply->hasRawHeader("Location")) {
        const QUrl target = url.resolved(QUrl::fromEncoded(reply->rawHeader("Location")));
        if (!staysHere(target)) {
            finish(target, {});
            return;
        }
        // 307 and 308 repeat the request as it was; the others fetch the new address.
        const bool repeat = status == 307 || status == 308;
        const QNetworkAccessManager::Operation operation = reply->operation();
        const QByteArray method =
            operation == QNetworkAccessManager::PostOperation ? "POST"
            : operation == QNetworkAccessManager::CustomOperation
                ? reply->request().attribute(QNetworkRequest::CustomVerbAttribute).toByteArray()
                : "GET";
        if (repeat && method != "GET") {
            finish({}, u"%1 redirects a %2 with %3; this browser does not resend forms"_s
                           .arg(url.toString(), QString::fromLatin1(method))
                           .arg(status));
            return;
        }
        load(target);
        return;
    }
    showPage(url, status, body);
}

void OAuthTestBrowser::showPage(const QUrl& url, int status, const QString& html)
{
    ++m_pagesLoaded;
    m_lastPage = html;
    if (status < 200 || status >= 300) {
        finish({},
               u"%1 answered HTTP %2: %3"_s.arg(url.toString()).arg(status).arg(messageOf(html)));
        return;
    }

    // The person reads the page: a sign-in form gets the e-mail address, a
    // consent form the chosen answer.
    const QString answer = m_choice.allow ? u"allow"_s : u"deny"_s;
    for (const Form& form : Form::allIn(html)) {
        const Form::Control* pressed = nullptr;
        if (form.email())
            pressed = form.submitter();
        else
            pressed = form.submitter(answer);
        if (!pressed)
            continue;
        const QString action =
            pressed->attributes.value(u"formaction"_s, form.attributes.value(u"action"_s));
        const QUrl target = action.isEmpty() ? url : url.resolved(QUrl(action));
        if (!staysHere(target)) {
            finish({},
                   u"the form on %1 goes elsewhere: %2"_s.arg(url.toString(), target.toString()));
            return;
        }
        const QByteArray data = form.encoded(*pressed, m_choice.email);
        const QString method =
            pressed->attributes.value(u"formmethod"_s, form.attributes.value(u"method"_s, u"get"_s))
                .toLower();
        if (method == u"post"_s) {
            load(target, "POST", data);
        } else {
            QUrl withQuery = target;
            withQuery.setQuery(QString::fromLatin1(data));
            load(withQuery);
        }
        return;
    }
    finish({}, u"%1 has no sign-in form and no %2 button: %3"_s.arg(url.toString(), answer,
                                                                    messageOf(html)));
}

bool OAuthTestBrowser::staysHere(const QUrl& url) const
{
    const QString scheme = url.scheme().toLower();
    if (scheme != u"http"_s && scheme != u"https"_s)
        return false;
    const int defaultPort = scheme == u"https"_s ? 443 : 80;
    const int originPort = m_origin.port(m_origin.scheme() == u"https"_s ? 443 : 80);
    return scheme == m_origin.scheme().toLower() &&
           url.host().compare(m_origin.host(), Qt::CaseInsensitive) == 0 &&
           url.port(defaultPort) == originPort;
}

void OAuthTestBrowser::finish(const QUrl& finalUrl, const QString& error)
{
    if (m_reply) {
        disconnect(m_reply, nullptr, this, nullptr);
        m_reply->abort();
        m_reply = nullptr;
    }
    // `done` may end this browser.
    const Done done = std::exchange(m_done, {});
    if (done)
        done(finalUrl, error);
}
