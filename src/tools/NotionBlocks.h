// Page and block content for Notion as its API documents it: rich-text
// arrays and block objects built from what the assistant asks to write, with
// the API's length limits kept by splitting rather than by failing.
#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>

#include <optional>

namespace NotionBlocks {

// The API refuses a text object whose content is longer than this…
constexpr qsizetype maxTextLength = 2000;
// …a rich-text array with more elements than this…
constexpr qsizetype maxRichTextElements = 100;
// …and more blocks than this in one children array.
constexpr qsizetype maxBlocksPerRequest = 100;

// `text` as text objects of at most maxTextLength characters each, never
// cutting a character in two; an empty text gives one empty object.
QJsonArray richText(const QString& text);

// The blocks to send for what was asked: full Notion block objects are kept
// (their long text objects split), and the short forms a model tends to
// write are built out — a string is a paragraph; {"type": "to_do", "text":
// "…", "checked": false} and the like take "text" or "content" as the text.
// A text too long for one block continues in further blocks of its kind.
// Nothing, with `error` saying which item and why, for an item that is none
// of these.
std::optional<QJsonArray> blocks(const QJsonArray& requested, QString* error);

// `blocks` in runs the API takes in one request.
QList<QJsonArray> chunks(const QJsonArray& blocks);

// The plain text of a rich-text array: "plain_text" where the API gave it,
// else the text objects' content.
QString plainText(const QJsonArray& richText);

} // namespace NotionBlocks
