// The feedback form's state for the settings screen: the chosen type, the text
// with its counter, the submission in flight and the alert that reports it.
#pragma once

#include <QObject>
#include <QString>
#include <QVariantList>

class FeedbackService;
class FeedbackResult;

// Lives on the GUI thread beside the service (which must outlive it). One
// submission at a time per form. A failed submission keeps the text, so the
// user never has to type it again; a successful one clears it.
class FeedbackForm : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QVariantList typeOptions READ typeOptions CONSTANT)
    Q_PROPERTY(int typeIndex READ typeIndex WRITE setTypeIndex NOTIFY typeIndexChanged)
    Q_PROPERTY(QString text READ text WRITE setText NOTIFY textChanged)
    Q_PROPERTY(int characterCount READ characterCount NOTIFY textChanged)
    Q_PROPERTY(int maxCharacters READ maxCharacters CONSTANT)
    Q_PROPERTY(bool isOverLimit READ isOverLimit NOTIFY textChanged)
    Q_PROPERTY(QString placeholderText READ placeholderText CONSTANT)
    Q_PROPERTY(bool isSubmitting READ isSubmitting NOTIFY isSubmittingChanged)
    Q_PROPERTY(bool alertVisible READ alertVisible NOTIFY alertChanged)
    Q_PROPERTY(QString alertTitle READ alertTitle NOTIFY alertChanged)
    Q_PROPERTY(QString alertMessage READ alertMessage NOTIFY alertChanged)
    Q_PROPERTY(bool alertIsError READ alertIsError NOTIFY alertChanged)

public:
    explicit FeedbackForm(FeedbackService& service, QObject* parent = nullptr);

    // {value, label} per feedback type, in the order the form offers them.
    static QVariantList typeOptions();
    int typeIndex() const { return m_typeIndex; }
    // An index outside the list of types is ignored.
    void setTypeIndex(int index);
    QString typeValue() const;
    QString text() const { return m_text; }
    void setText(const QString& text);
    int characterCount() const;
    static int maxCharacters();
    bool isOverLimit() const { return characterCount() > maxCharacters(); }
    static QString placeholderText();
    bool isSubmitting() const { return m_submitting; }
    bool alertVisible() const { return m_alertVisible; }
    QString alertTitle() const { return m_alertTitle; }
    QString alertMessage() const { return m_alertMessage; }
    bool alertIsError() const { return m_alertIsError; }

    // Sends the text with the chosen type; nothing while a submission runs.
    // The outcome shows as the alert.
    Q_INVOKABLE void submit();
    Q_INVOKABLE void dismissAlert();

Q_SIGNALS:
    void typeIndexChanged();
    void textChanged();
    void isSubmittingChanged();
    void alertChanged();
    void submitted(bool success);

private:
    void finished(const QString& sentText, const FeedbackResult& result);
    void showAlert(const QString& title, const QString& message, bool isError);

    FeedbackService& m_service;
    int m_typeIndex = 0;
    QString m_text;
    bool m_submitting = false;
    bool m_alertVisible = false;
    QString m_alertTitle;
    QString m_alertMessage;
    bool m_alertIsError = false;
};
