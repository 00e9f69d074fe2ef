#include "tools/NotionBlocks.h"

#include <QSet>

using namespace Qt::StringLiterals;

namespace {

// Block types whose content is one rich-text array under "rich_text".
const QSet<QString>& textBlockTypes()
{
    static const QSet<QString> types{
        u"paragraph"_s,
        u"heading_1"_s,
        u"heading_2"_s,
        u"heading_3"_s,
        u"bulleted_list_item"_s,
        u"numbered_list_item"_s,
        u"to_do"_s,
        u"toggle"_s,
        u"quote"_s,
        u"callout"_s,
        u"code"_s,
    };
    return types;
}

// Where a text of `length` may be cut at or before `limit` without splitting
// a surrogate pair.
qsizetype cutAt(const QString& text, qsizetype from, qsizetype limit)
{
    qsizetype end = std::min(from + limit, text.size());
    if (end < text.size() && end > from && text.at(end - 1).isHighSurrogate())
        --end;
    return end;
}

QJsonObject textObject(const QString& content, const QJsonObject& like)
{
    QJsonObject object = like;
    QJsonObject text = like.value(u"text"_s).toObject();
    text.insert(u"content"_s, content);
    object.insert(u"text"_s, text);
    object.remove(u"plain_text"_s);
    return object;
}

// Each text object of `array` with content past the limit becomes several,
// each keeping the original's link and annotations.
QJsonArray splitLongTexts(const QJsonArray& array)
{
    QJsonArray split;
    for (const QJsonValue element : array) {
        const QJsonObject object = element.toObject();
        const QString content = object.value(u"text"_s).toObject().value(u"content"_s).toString();
        if (content.size() <= NotionBlocks::maxTextLength) {
            split.append(element);
            continue;
        }
        for (qsizetype at = 0; at < content.size();) {
            const qsizetype end = cutAt(content, at, NotionBlocks::maxTextLength);
            split.append(textObject(content.mid(at, end - at), object));
            at = end;
        }
    }
    return split;
}

// The block of `type` with `richText` and the type's other fields; one
// block per run of rich text the API takes in one array.
QJsonArray textBlocks(const QString& type, const QJsonArray& richText, QJsonObject content)
{
    QJsonArray built;
    for (qsizetype at = 0; at < richText.size() || at == 0;
         at += NotionBlocks::maxRichTextElements) {
        QJsonArray run;
        for (qsizetype i = at;
             i < std::min(at + NotionBlocks::maxRichTextElements, richText.size()); ++i)
            run.append(richText.at(i));
        content.insert(u"rich_text"_s, run);
        built.append(QJsonObject{{u"object"_s, u"block"_s}, {u"type"_s, type}, {type, content}});
        // Only the first block keeps children and the like.
        content.remove(u"children"_s);
    }
    return built;
}

std::optional<QString> shortText(const QJsonObject& item)
{
    for (const QString& key : {u"text"_s, u"content"_s}) {
        if (item.value(key).isString())
            return item.value(key).toString();
    }
    return std::nullopt;
}

} // namespace

QJsonArray NotionBlocks::richText(const QString& text)
{
    return splitLongTexts({QJsonObject{{u"text"_s, QJsonObject{{u"content"_s, text}}}}});
}

std::optional<QJsonArray> NotionBlocks::blocks(const QJsonArray& requested, QString* error)
{
    QJsonArray built;
    for (qsizetype i = 0; i < requested.size(); ++i) {
        const QJsonValue item = requested.at(i);
        const auto append = [&built](const QJsonArray& more) {
            for (const QJsonValue block : more)
                built.append(block);
        };
        if (item.isString()) {
            append(textBlocks(u"paragraph"_s, richText(item.toString()), {}));
            continue;
        }
        if (!item.isObject()) {
            *error = u"item %1 is neither a block object nor a text"_s.arg(i + 1);
            return std::nullopt;
        }
        const QJsonObject object = item.toObject();
        const QString type = object.value(u"type"_s).toString(u"paragraph"_s);
        const QJsonValue body = object.value(type);
        if (body.isObject()) {
            // A block as the API writes it: kept, its long texts split.
            QJsonObject content = body.toObject();
            if (!textBlockTypes().contains(type) || !content.value(u"rich_text"_s).isArray()) {
                QJsonObject block = object;
                block.insert(u"object"_s, u"block"_s);
                block.insert(u"type"_s, type);
                built.append(block);
                continue;
            }
            append(
                textBlocks(type, splitLongTexts(content.value(u"rich_text"_s).toArray()), content));
            continue;
        }
        if (type == u"divider"_s) {
            built.append(
                QJsonObject{{u"object"_s, u"block"_s}, {u"type"_s, type}, {type, QJsonObject{}}});
            continue;
        }
        const std::optional<QString> text = shortText(object);
        if (!textBlockTypes().contains(type) || !text) {
            *error = text ? u"item %1: \"%2\" is not a text block type"_s.arg(i + 1).arg(type)
                          : u"item %1 has no \"%2\" object and no \"text\""_s.arg(i + 1).arg(type);
            return std::nullopt;
        }
        QJsonObject content;
        if (type == u"to_do"_s)
            content.insert(u"checked"_s, object.value(u"checked"_s).toBool(false));
        if (type == u"code"_s)
            content.insert(u"language"_s, object.value(u"language"_s).toString(u"plain text"_s));
        append(textBlocks(type, richText(*text), content));
    }
    return built;
}

QList<QJsonArray> NotionBlocks::chunks(const QJsonArray& blocks)
{
    QList<QJsonArray> runs;
    for (qsizetype i = 0; i < blocks.size(); ++i) {
        if (i % maxBlocksPerRequest == 0)
            runs.append(QJsonArray{});
        runs.last().append(blocks.at(i));
    }
    return runs;
}

QString NotionBlocks::plainText(const QJsonArray& richText)
{
    QString text;
    for (const QJsonValue element : richText) {
        const QJsonObject object = element.toObject();
        const QJsonValue plain = object.value(u"plain_text"_s);
        text += plain.isString()
                    ? plain.toString()
                    : object.value(u"text"_s).toObject().value(u"content"_s).toString();
    }
    return text;
}
