// The parameters an assistant asks a tool to run with, against a schema a
// remote server declared: whatever either holds, the check answers with the
// parameters to pass on or one of its two refusals, and the document that
// describes such a tool can always be built.
#include "tools/LocalTool.h"
#include "tools/ToolConfigurationDocument.h"
#include "tools/ToolParameters.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <cstdint>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

void check(bool condition)
{
    if (!condition)
        std::abort();
}

class DeclaredTool : public LocalTool
{
public:
    explicit DeclaredTool(QJsonValue schema) : m_schema(std::move(schema)) {}
    QString identifier() const override { return u"mcp_fuzzed"_s; }
    QString name() const override { return u"Fuzzed"_s; }
    QString description() const override { return {}; }
    QJsonObject parameterSchema() const override { return m_schema.toObject(); }
    std::optional<QJsonValue> declaredInputSchema() const override { return m_schema; }
    void execute(const ToolInvocation&, Done done) override { done(ToolOutcome::success({})); }

private:
    QJsonValue m_schema;
};

} // namespace

// Input: a JSON array [schema, parameters].
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QJsonDocument document = QJsonDocument::fromJson(
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)));
    const QJsonArray input = document.array();
    const QJsonValue schema = input.at(0);
    const QJsonObject parameters = input.at(1).toObject();

    const auto checked = checkToolParameters(schema.toObject(), parameters);
    if (const auto* passed = std::get_if<QJsonObject>(&checked)) {
        for (auto it = passed->constBegin(); it != passed->constEnd(); ++it) {
            check(!it.value().isNull());
            check(parameters.value(it.key()) == it.value());
        }
    } else {
        const LocalToolError& error = std::get<LocalToolError>(checked);
        check(error.kind() == LocalToolError::Kind::missingParameter ||
              error.kind() == LocalToolError::Kind::invalidParameter);
    }

    const QJsonObject built =
        ToolConfigurationDocument::build({}, {std::make_shared<const DeclaredTool>(schema)});
    const QJsonObject definition = built.value(u"localTools"_s).toArray().at(0).toObject();
    check(definition.value(u"parameters"_s).isObject());
    // Parsed JSON holds no number that cannot be written back.
    check(ToolConfigurationDocument::encode(built).has_value());
    return 0;
}
