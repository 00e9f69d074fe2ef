// Test support: a local stand-in for the Notion API keeping a small
// workspace in memory (users, one database with its schema, pages, blocks,
// comments), answering with bodies shaped as Notion documents them — its
// error object included — and recording every request.
#pragma once

#include "HttpStub.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUrl>

#include <optional>

class NotionFake
{
public:
    // The workspace every fake starts with.
    static constexpr auto token = "secret_quillmoss_test";
    static constexpr auto databaseId = "d9824bdc-8445-4327-be8b-5b47500af6ce";
    static constexpr auto acmePageId = "59833787-2cf9-4fdf-8782-e53db20768a5";
    static constexpr auto globexPageId = "a1d8501e-1ac1-43e9-a6bd-ea9fe6c8822b";
    static constexpr auto notesPageId = "b55c9c91-384d-452b-81db-d1ef79372b75";
    static constexpr auto commentId = "94cc56ab-9f02-409d-9f99-1037e9fe502f";
    static constexpr auto discussionId = "f1407351-36f5-4c49-a13c-49f8ba11776d";
    static constexpr auto personId = "e79a0b74-3aba-4149-9f74-0bb5791a6ee6";
    static constexpr auto botId = "9a3b5ae0-c6e6-482d-b0e1-ed315ee6dc57";

    NotionFake();

    QUrl url() const { return m_stub.url(); }
    QList<HttpStub::Request> requests() const { return m_stub.requests(); }

    // From now on every request is answered with Notion's error object of
    // `status` (400, 401, 404, 409, 429, 500); 0 answers normally again.
    void failWith(int status) { m_failWith = status; }

    std::optional<QJsonObject> page(const QString& id) const;
    // The pages whose parent is the database, in the order they were made.
    QList<QJsonObject> pagesIn(const QString& database) const;
    // The blocks under a page or block, in order.
    QJsonArray children(const QString& parentId) const;
    QJsonArray comments() const { return m_comments; }

private:
    std::optional<HttpStub::Answer> answer(const HttpStub::Request& request);
    HttpStub::Answer route(const QByteArray& method, const QString& path,
                           const QList<std::pair<QString, QString>>& query,
                           const QJsonObject& body);
    HttpStub::Answer createPage(const QJsonObject& body);
    HttpStub::Answer updatePage(const QString& id, const QJsonObject& body);
    HttpStub::Answer appendChildren(const QString& parentId, const QJsonObject& body);
    HttpStub::Answer createComment(const QJsonObject& body);
    // The blocks as stored, or the validation error Notion gives for them.
    std::optional<QString> addBlocks(const QString& parentId, const QJsonArray& blocks,
                                     const QString& after, QJsonArray* added);
    qsizetype indexOfPage(const QString& id) const;
    QString newId();

    HttpStub m_stub;
    int m_failWith = 0;
    int m_nextId = 1;
    QJsonObject m_database;
    QList<QJsonObject> m_pages;
    QList<std::pair<QString, QJsonArray>> m_children;
    QJsonArray m_comments;
    QJsonArray m_users;
};
