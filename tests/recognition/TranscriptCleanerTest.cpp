#include "recognition/TranscriptCleaner.h"

#include "LogCapture.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// "w000 w001 ... w199z": exactly `length` characters, every word different.
QString distinctWords(qsizetype length)
{
    QString text = u"w000"_s;
    for (int i = 1; text.size() + 5 <= length; ++i) {
        text += u" w%1"_s.arg(i, 3, 10, QChar(u'0'));
    }
    return text + QString(length - text.size(), u'z');
}

// The phrase with every letter's case flipped, so only a case-insensitive match finds it.
QString swapCase(const QString& text)
{
    QString result;
    for (const QChar c : text) {
        result += c.isUpper() ? c.toLower() : c.toUpper();
    }
    return result;
}

// What step 2 removes: a phrase wrapped in brackets, parentheses or asterisks
// is gone before the phrases are looked for.
bool isMarkup(const QString& phrase)
{
    return phrase.startsWith(u'[') || phrase.startsWith(u'(') || phrase.startsWith(u'*');
}

} // namespace

class TranscriptCleanerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void clean_data()
    {
        QTest::addColumn<QString>("raw");
        QTest::addColumn<bool>("accepted");
        QTest::addColumn<QString>("cleaned");
        const auto kept = [](const char* name, const QString& raw, const QString& cleaned) {
            QTest::newRow(name) << raw << true << cleaned;
        };
        const auto rejected = [](const char* name, const QString& raw) {
            QTest::newRow(name) << raw << false << QString();
        };
        kept("one-letter words go", u"I think so."_s, u"think so."_s);
        rejected("stock phrase anywhere", u"Thanks for watching! See you"_s);
        kept("label in parentheses", u"(laughs) okay great"_s, u"okay great"_s);
        rejected("loop: 1 of 5 distinct", u"yes yes yes yes yes"_s);
        kept("2 of 4 distinct is enough", u"yes yes no no"_s, u"yes yes no no"_s);
        rejected("loop ignores case", u"You YOU you yOu"_s);
        kept("three words are never a loop", u"the the the"_s, u"the the the"_s);
        rejected("only dots", u"..."_s);
        rejected("punctuation and blanks", u"?! -- ... !"_s);
        rejected("digits are not letters", u"1234 5678"_s);
        rejected("too short once trimmed", u" \n hi \t"_s);
        rejected("too short after the labels go", u"[MUSIC] ok (x)"_s);
        rejected("bare noise word in speech", u"the music was loud"_s);
        rejected("noise word inside a word", u"noisewise we are fine"_s);
        rejected("noise word behind an unbalanced parenthesis", u"(music playing"_s);
        kept("labels go before phrases are looked for", u"[inaudible] hello there"_s,
             u"hello there"_s);
        kept("asterisk label", u"*coughs* right, so"_s, u"right, so"_s);
        kept("unbalanced bracket stays", u"so [the deal"_s, u"so [the deal"_s);
        kept("blanks and line breaks become one space", u"  hello\n\nthere\t friend \n"_s,
             u"hello there friend"_s);
        kept("word of only punctuation goes", u"-- hello --"_s, u"hello"_s);
        kept("a letter and a digit make a word", u"x1 ab"_s, u"x1 ab"_s);
        rejected("no word of two characters", u"a b c d e"_s);
        kept("two characters is enough", u"I ok"_s, u"ok"_s);
        kept("accented letters", u"Café au lait, s'il vous plaît"_s,
             u"Café au lait, s'il vous plaît"_s);
        kept("other scripts have letters", u"Привет мир"_s, u"Привет мир"_s);
        kept("three ideographs", u"你好吗"_s, u"你好吗"_s);
        rejected("two ideographs are too short", u"你好"_s);
        // "é" as "e" and a combining accent is one character, so each word is too short.
        rejected("combining accents count once", u"e\u0301 o\u0301"_s);
        kept("an emoji with a skin tone is one character", u"ok 👍🏽"_s, u"ok"_s);
        rejected("emoji are not letters", u"👍 👍 🎵"_s);
        kept("1000 characters", distinctWords(1000), distinctWords(1000));
        rejected("1001 characters", distinctWords(1001));
    }

    // Also: the one log line of an accepted chunk, and silence for a rejected one.
    void clean()
    {
        QFETCH(QString, raw);
        QFETCH(bool, accepted);
        QFETCH(QString, cleaned);
        const LogCapture log;
        const std::optional<QString> result = TranscriptCleaner::clean(raw);
        QCOMPARE(result.has_value(), accepted);
        if (!accepted) {
            QCOMPARE(log.lines(), QStringList());
            return;
        }
        QCOMPARE(*result, cleaned);
        QCOMPARE(log.lines(), QStringList{u"🧹 Cleaned transcription: '"_s + raw.trimmed() +
                                          u"' -> '"_s + cleaned + u"'"_s});
    }

    // Each phrase in a sentence, its letters in the other case: the plain ones
    // reject the chunk; the bracketed, parenthesized and starred ones cannot
    // survive the label removal that runs first, so the rest of the sentence stays.
    void noisePhrases_data()
    {
        QTest::addColumn<QString>("phrase");
        const QStringList& phrases = TranscriptCleaner::noisePhrases();
        QCOMPARE(phrases.size(), 73);
        for (const QString& phrase : phrases) {
            QTest::newRow(qPrintable(phrase)) << phrase;
        }
    }

    void noisePhrases()
    {
        QFETCH(QString, phrase);
        const LogCapture quiet;
        const std::optional<QString> result =
            TranscriptCleaner::clean(u"so we heard "_s + swapCase(phrase) + u" again today"_s);
        if (isMarkup(phrase)) {
            QCOMPARE(result, std::optional(u"so we heard again today"_s));
        } else {
            QCOMPARE(result, std::nullopt);
        }
    }
};

QTEST_GUILESS_MAIN(TranscriptCleanerTest)
#include "TranscriptCleanerTest.moc"
