#include "account/FeedbackForm.h"

#include "account/FeedbackService.h"

#include <QFutureWatcher>
#include <QVariantMap>

using namespace Qt::StringLiterals;

FeedbackForm::FeedbackForm(FeedbackService& service, QObject* parent)
    : QObject(parent), m_service(service)
{}

QVariantList FeedbackForm::typeOptions()
{
    QVariantList options;
    for (const FeedbackService::FeedbackType& type : FeedbackService::types()) {
        options.append(QVariantMap{{u"value"_s, type.value}, {u"label"_s, type.displayName}});
    }
    return options;
}

void FeedbackForm::setTypeIndex(int index)
{
    if (index < 0 || index >= FeedbackService::types().size() || index == m_typeIndex) {
        return;
    }
    m_typeIndex = index;
    Q_EMIT typeIndexChanged();
}

QString FeedbackForm::typeValue() const
{
    return FeedbackService::types().at(m_typeIndex).value;
}

void FeedbackForm::setText(const QString& text)
{
    if (text != m_text) {
        m_text = text;
        Q_EMIT textChanged();
    }
}

int FeedbackForm::characterCount() const
{
    return FeedbackService::characterCount(m_text);
}

int FeedbackForm::maxCharacters()
{
    return FeedbackService::maxCharacters();
}

QString FeedbackForm::placeholderText()
{
    return FeedbackService::placeholderText();
}

void FeedbackForm::submit()
{
    if (m_submitting) {
        return;
    }
    const QString sentText = m_text;
    const QFuture<FeedbackResult> future = m_service.submit(typeValue(), sentText);
    if (future.isFinished()) {
        // Refused before any request (an empty or too long text).
        finished(sentText, future.result());
        return;
    }
    m_submitting = true;
    Q_EMIT isSubmittingChanged();
    // A child watcher: if the form goes first, the answer goes nowhere.
    auto* watcher = new QFutureWatcher<FeedbackResult>(this);
    connect(watcher, &QFutureWatcher<FeedbackResult>::finished, this, [this, watcher, sentText] {
        watcher->deleteLater();
        m_submitting = false;
        Q_EMIT isSubmittingChanged();
        finished(sentText, watcher->result());
    });
    watcher->setFuture(future);
}

void FeedbackForm::dismissAlert()
{
    if (m_alertVisible) {
        m_alertVisible = false;
        Q_EMIT alertChanged();
    }
}

void FeedbackForm::finished(const QString& sentText, const FeedbackResult& result)
{
    // What the user typed while it was on its way is theirs to keep.
    if (result.success && m_text == sentText) {
        setText({});
    }
    showAlert(result.title, result.message, !result.success);
    Q_EMIT submitted(result.success);
}

void FeedbackForm::showAlert(const QString& title, const QString& message, bool isError)
{
    m_alertVisible = true;
    m_alertTitle = title;
    m_alertMessage = message;
    m_alertIsError = isError;
    Q_EMIT alertChanged();
}
