#include "ai/core/ClaudeClient.h"

namespace qm::ai {

const QList<AIAction>& aiActions() {
    static const QList<AIAction> actions = {
        {QStringLiteral("describe"), QStringLiteral("Describe"), QStringLiteral("edit-find"),
         QStringLiteral("Describe what this screenshot shows, concisely. Mention the app or site "
                        "if identifiable and anything notable.")},
        {QStringLiteral("explain-error"), QStringLiteral("Explain Error"),
         QStringLiteral("dialog-warning"),
         QStringLiteral("This screenshot shows an error or unexpected behavior. Explain what the "
                        "error means and suggest the most likely fixes, most probable first.")},
        {QStringLiteral("extract"), QStringLiteral("Extract Data"),
         QStringLiteral("x-office-spreadsheet"),
         QStringLiteral("Extract the meaningful content of this screenshot as clean Markdown. "
                        "Reproduce tables as Markdown tables, code as fenced code blocks, and "
                        "lists as lists. Output only the extracted content.")},
        {QStringLiteral("bug-report"), QStringLiteral("Draft Bug Report"),
         QStringLiteral("tools-report-bug"),
         QStringLiteral("Draft a concise bug report based on this screenshot: a one-line title, "
                        "what appears to happen, expected behavior, and any error text visible. "
                        "Use Markdown.")},
    };
    return actions;
}

std::optional<AIAction> aiAction(const QString& id) {
    for (const AIAction& action : aiActions())
        if (action.id == id)
            return action;
    return std::nullopt;
}

const QList<AIModel>& aiModels() {
    static const QList<AIModel> models = {
        {QStringLiteral("claude-sonnet-5"), QStringLiteral("Claude Sonnet 5 (recommended)")},
        {QStringLiteral("claude-opus-4-8"), QStringLiteral("Claude Opus 4.8")},
        {QStringLiteral("claude-haiku-4-5-20251001"), QStringLiteral("Claude Haiku 4.5")},
    };
    return models;
}

QString modelName(const QString& id) {
    for (const AIModel& model : aiModels())
        if (model.id == id)
            return model.name;
    return id;
}

} // namespace qm::ai
