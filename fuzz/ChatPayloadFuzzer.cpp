// What the backend sends the chat: answers, history and agent suggestions.
// Whatever they hold, the chat takes them without crashing, never runs a
// tool on its own, keeps at most one loading placeholder, and can always
// export the conversation.
#include "chat/ChatRecords.h"
#include "chat/ChatViewModel.h"
#include "store/KeychainManager.h"
#include "tools/LocalToolManager.h"

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

} // namespace

// Input: a JSON array [chatResponse, agentSuggestions, chatHistory entries].
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static KeychainManager keychain; // never reached: no tool runs
    static LocalToolManager tools(keychain);
    const QJsonArray input =
        QJsonDocument::fromJson(QByteArray::fromRawData(reinterpret_cast<const char*>(data),
                                                        static_cast<qsizetype>(size)))
            .array();

    ChatViewModel chat(tools,
                       [](std::chrono::milliseconds, QObject*, const std::function<void()>&) {});
    chat.handleChatResponse(input.at(0).toObject());
    chat.handleAgentSuggestions(input.at(1).toObject());
    for (const ChatMessage& message : chat.pendingToolApprovals()) {
        check(message.toolCalls && !message.toolCalls->isEmpty());
        for (const ToolCall& call : *message.toolCalls) {
            check(!call.name.isEmpty());
            static_cast<void>(ChatRecords::readableArguments(call.parameters));
        }
        check(chat.approvalState(message.id) == ChatViewModel::ApprovalState::Pending);
    }
    chat.handleChatHistory(input.at(2).toArray());
    for (const ChatMessage& message : chat.messages())
        check(!message.isLoading && !message.isPendingToolApproval);
    check(chat.exportMarkdown().startsWith(u"# Chat Conversation\n\n"_s));
    return 0;
}
