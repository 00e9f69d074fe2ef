// The filter between speech recognition and the transcript: strips sound labels and drops
// text the model hallucinates on silence or music, so a whole chunk is lost rather than shown.
#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// Stateless and thread-safe: recognition workers call it off the GUI thread.
//
// "Characters" are what the user sees as one character (extended grapheme
// clusters), so a letter with a combining accent or an emoji with modifiers
// counts once whatever its encoding. A "letter" is a code point of a Unicode
// letter category (L*) in any script; digits and symbols are not letters.
// "Punctuation" is the Unicode punctuation categories (P*), and whitespace is
// what QChar::isSpace() says (Unicode separators plus tab, line breaks and NEL).
class TranscriptCleaner
{
public:
    // The text to show and send, or nothing when the chunk is to be dropped.
    static std::optional<QString> clean(const QString& raw);

    // The phrases that reject a chunk wherever they occur, in the order tested.
    static const QStringList& noisePhrases();
};
