#include "recognition/TranscriptCleaner.h"

#include "core/Logging.h"

#include <QRegularExpression>
#include <QSet>
#include <QTextBoundaryFinder>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype minimumRawLength = 3;
constexpr qsizetype minimumWordLength = 2;
constexpr qsizetype minimumResultLength = 2;
constexpr qsizetype maximumResultLength = 1000;
// More words than this are checked for a hallucinated loop ("you you you you").
constexpr qsizetype repetitionCheckWords = 3;
constexpr double minimumDistinctRatio = 0.5;

// Sound labels the model writes instead of speech. The order matters: empty
// brackets only remain once the bracketed labels have gone.
struct Markup
{
    Markup()
    {
        // Compiled here, once, so that concurrent matching only reads them.
        for (QRegularExpression& expression : expressions) {
            expression.optimize();
        }
    }

    QRegularExpression expressions[4] = {
        QRegularExpression(u"\\([^)]*\\)"_s, QRegularExpression::UseUnicodePropertiesOption),
        QRegularExpression(u"\\[[^\\]]*\\]"_s, QRegularExpression::UseUnicodePropertiesOption),
        QRegularExpression(u"\\s*\\[\\s*\\]\\s*"_s, QRegularExpression::UseUnicodePropertiesOption),
        QRegularExpression(u"\\*[^*]*\\*"_s, QRegularExpression::UseUnicodePropertiesOption),
    };
};

const Markup& markup()
{
    static const Markup instance;
    return instance;
}

// uint in Qt 6.4, char32_t later.
using CodePoints = decltype(QStringView().toUcs4());

// User-perceived characters, so that "é" counts once whether it arrives
// precomposed or as "e" plus a combining accent.
qsizetype characterCount(const QString& text)
{
    QTextBoundaryFinder boundaries(QTextBoundaryFinder::Grapheme, text);
    qsizetype count = 0;
    while (boundaries.toNextBoundary() != -1) {
        ++count;
    }
    return count;
}

bool hasLetter(const CodePoints& codePoints)
{
    return std::any_of(codePoints.begin(), codePoints.end(),
                       [](auto c) { return QChar::isLetter(char32_t(c)); });
}

bool hasNonPunctuation(const CodePoints& codePoints)
{
    return std::any_of(codePoints.begin(), codePoints.end(),
                       [](auto c) { return !QChar::isPunct(char32_t(c)); });
}

bool onlyPunctuationAndWhitespace(const CodePoints& codePoints)
{
    return std::all_of(codePoints.begin(), codePoints.end(), [](auto c) {
        return QChar::isPunct(char32_t(c)) || QChar::isSpace(char32_t(c));
    });
}

// Split at the same whitespace QString::trimmed() removes.
QStringList words(const QString& text)
{
    QStringList result;
    qsizetype start = -1;
    for (qsizetype i = 0; i <= text.size(); ++i) {
        const bool space = i == text.size() || text.at(i).isSpace();
        if (space && start >= 0) {
            result.append(text.mid(start, i - start));
            start = -1;
        } else if (!space && start < 0) {
            start = i;
        }
    }
    return result;
}

bool isRepetitive(const QStringList& words)
{
    if (words.size() <= repetitionCheckWords) {
        return false;
    }
    QSet<QString> distinct;
    for (const QString& word : words) {
        distinct.insert(word.toLower());
    }
    return static_cast<double>(distinct.size()) / static_cast<double>(words.size()) <
           minimumDistinctRatio;
}

bool isKeptWord(const QString& word)
{
    if (characterCount(word) < minimumWordLength) {
        return false;
    }
    const CodePoints codePoints = QStringView(word).toUcs4();
    return hasLetter(codePoints) && hasNonPunctuation(codePoints);
}

} // namespace

const QStringList& TranscriptCleaner::noisePhrases()
{
    static const QStringList phrases = {
        u"[BLANK_AUDIO]"_s,
        u"(blank_audio)"_s,
        u"[blank_audio]"_s,
        u"BLANK_AUDIO"_s,
        u"[MUSIC]"_s,
        u"(music)"_s,
        u"[music]"_s,
        u"MUSIC"_s,
        u"[SILENCE]"_s,
        u"(silence)"_s,
        u"[silence]"_s,
        u"SILENCE"_s,
        u"[NOISE]"_s,
        u"(noise)"_s,
        u"[noise]"_s,
        u"NOISE"_s,
        u"[unclear]"_s,
        u"[inaudible]"_s,
        u"[background noise]"_s,
        u"[music playing]"_s,
        u"[phone ringing]"_s,
        u"[door closing]"_s,
        u"[typing]"_s,
        u"[clicking]"_s,
        u"[breathing]"_s,
        u"[coughing]"_s,
        u"[laughing]"_s,
        u"[crying]"_s,
        u"[applause]"_s,
        u"[cheering]"_s,
        u"[booing]"_s,
        u"[whistling]"_s,
        u"[car engine]"_s,
        u"[wind]"_s,
        u"[rain]"_s,
        u"[thunder]"_s,
        u"[footsteps]"_s,
        u"[rustling]"_s,
        u"[shuffling]"_s,
        u"[static]"_s,
        u"[distorted]"_s,
        u"[muffled]"_s,
        u"[echo]"_s,
        u"[reverb]"_s,
        u"Thanks for watching!"_s,
        u"Thank you for watching"_s,
        u"Subscribe to our channel"_s,
        u"Like and subscribe"_s,
        u"*squeaking*"_s,
        u"*snoring*"_s,
        u"*background noise*"_s,
        u"*static*"_s,
        u"*clicking*"_s,
        u"*typing*"_s,
        u"*breathing*"_s,
        u"*coughing*"_s,
        u"*shuffling*"_s,
        u"*rustling*"_s,
        u"*wind*"_s,
        u"*echo*"_s,
        u"(music playing)"_s,
        u"(background music)"_s,
        u"(phone ringing)"_s,
        u"(door closing)"_s,
        u"(footsteps)"_s,
        u"(car engine)"_s,
        u"inaudible"_s,
        u"unclear"_s,
        u"unintelligible"_s,
        u"indistinct"_s,
        u"muffled"_s,
        u"garbled"_s,
        u"distorted"_s,
    };
    return phrases;
}

std::optional<QString> TranscriptCleaner::clean(const QString& raw)
{
    const QString input = raw.trimmed();
    if (characterCount(input) < minimumRawLength) {
        return std::nullopt;
    }

    QString text = input;
    for (const QRegularExpression& expression : markup().expressions) {
        text.remove(expression);
    }
    // Deliberately strict: a bare word of the list rejects ordinary speech that
    // contains it ("the music was loud"), since losing one chunk costs less than
    // sending a hallucination to the backend.
    for (const QString& phrase : noisePhrases()) {
        if (text.contains(phrase, Qt::CaseInsensitive)) {
            return std::nullopt;
        }
    }

    text = text.trimmed();
    if (characterCount(text) < minimumRawLength) {
        return std::nullopt;
    }
    const CodePoints codePoints = QStringView(text).toUcs4();
    if (onlyPunctuationAndWhitespace(codePoints) || !hasLetter(codePoints)) {
        return std::nullopt;
    }

    const QStringList all = words(text);
    if (isRepetitive(all)) {
        return std::nullopt;
    }
    QStringList kept;
    for (const QString& word : all) {
        if (isKeptWord(word)) {
            kept.append(word);
        }
    }
    if (kept.isEmpty()) {
        return std::nullopt;
    }
    const QString result = kept.join(u' ');
    const qsizetype length = characterCount(result);
    if (length < minimumResultLength || length > maximumResultLength) {
        return std::nullopt;
    }
    qCInfo(lcCapture).noquote() << u"🧹 Cleaned transcription: '"_s + input + u"' -> '"_s +
                                       result + u"'"_s;
    return result;
}
