// A web-search tool for tests whose runs can be observed: it answers every
// query with one fixed text and remembers what it was asked.
#pragma once

#include "tools/LocalTool.h"

#include <QMutex>
#include <QStringList>

class RecordingSearchTool : public LocalTool
{
public:
    explicit RecordingSearchTool(QString answer) : m_answer(std::move(answer)) {}

    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    QJsonObject parameterSchema() const override;
    void execute(const ToolInvocation& call, Done done) override;

    // The queries it ran, in order.
    QStringList seen() const;

private:
    QString m_answer;
    mutable QMutex m_mutex; // the tool runs on the tool thread
    QStringList m_queries;
};
