#include "oxrctl/explain_text.h"

#include <fmt/format.h>

#include "oxrctl/command.h"
#include "oxrctl/text.h"

namespace oxrctl {

namespace {

// A format on one line, without the line feed at its end.
std::string on_one_line(std::string_view format) {
    while (format.ends_with('\n')) {
        format.remove_suffix(1);
    }
    std::string line;
    for (const char c : format) {
        line += c == '\n' ? std::string("\\n") : std::string(1, c);
    }
    return line;
}

// --- for people --------------------------------------------------------------------------------------------

constexpr std::size_t indent = 14;

// "  Label     text", continued below the text.
std::string field(const std::string& label, const std::string& text) {
    return wrapped(fmt::format("  {:<{}}", label, indent - 2), text);
}

std::string meaning_and_action(const std::string& meaning, const std::string& action) {
    return field("Meaning", meaning) + (action.empty() ? "" : field("What to do", action));
}

std::string message_text(const ExplainedMessage& message) {
    std::string text;
    for (const std::string& format : message.texts) {
        text += on_one_line(format) + "\n";
    }
    return text + field("Level", message.entry->level) + field("Subject", message.entry->subject) +
           meaning_and_action(message.entry->meaning, message.entry->action);
}

std::string code_text(const CodeEntry& code) {
    return fmt::format("{} status {}: {}\n", code.kind, code.code, code.name) +
           (code.text.empty() ? "" : field("Text", code.text)) + meaning_and_action(code.meaning, code.action);
}

std::string reason_text(const ReasonEntry& reason) {
    std::string text = reason.name + "\n" + field("Health", reason.health);
    for (const std::string& format : reason.texts) {
        text += field(&format == &reason.texts.front() ? "Told as" : "", format);
    }
    return text + meaning_and_action(reason.meaning, reason.action);
}

// --- for programs ------------------------------------------------------------------------------------------

Json message_json(const ExplainedMessage& message) {
    const MessageEntry& entry = *message.entry;
    return {{"subject", entry.subject},
            {"level", entry.level},
            {"texts", message.texts},
            {"meaning", entry.meaning},
            {"action", entry.action}};
}

Json code_json(const CodeEntry& code) {
    return {{"kind", code.kind}, {"code", code.code},       {"name", code.name},
            {"text", code.text}, {"meaning", code.meaning}, {"action", code.action}};
}

Json reason_json(const ReasonEntry& reason) {
    return {{"name", reason.name},
            {"health", reason.health},
            {"texts", reason.texts},
            {"meaning", reason.meaning},
            {"action", reason.action}};
}

// --- for the documentation ---------------------------------------------------------------------------------

// What would end a cell or begin an element is escaped.
std::string cell(std::string_view text) {
    std::string result;
    for (const char c : text) {
        if (c == '|' || c == '<') {
            result += '\\';
        }
        result += c;
    }
    return result;
}

std::string texts_cell(const MessageEntry& entry) {
    std::string lines;
    for (const std::string& format : entry.texts) {
        lines += fmt::format("{}{} `{}`", lines.empty() ? "" : "<br>", entry.level, on_one_line(format));
    }
    return lines;
}

constexpr char messages_head[] = "| Message | Meaning | What to do |\n|---|---|---|\n";

std::string message_tables() {
    std::string text;
    const std::vector<MessageEntry>& messages = catalogue().messages;
    for (std::size_t i = 0; i < messages.size();) {
        const MessageEntry& entry = messages[i];
        if (i == 0 || entry.subject != messages[i - 1].subject) {
            text += fmt::format("\n### {}\n\n{}", entry.subject, messages_head);
        }
        // Entries that differ in their level alone share a row.
        std::string texts;
        for (; i < messages.size() && messages[i].subject == entry.subject && messages[i].meaning == entry.meaning;
             ++i) {
            texts += (texts.empty() ? "" : "<br>") + texts_cell(messages[i]);
        }
        text += fmt::format("| {} | {} | {} |\n", texts, cell(entry.meaning), cell(entry.action));
    }
    return text;
}

std::string code_table(const std::string& kind, const std::string& heading) {
    std::string text = fmt::format("\n### {}\n\n| Code | Name | Meaning | What to do |\n|--:|---|---|---|\n", heading);
    for (const CodeEntry& code : catalogue().codes) {
        if (code.kind == kind) {
            text += fmt::format("| {} | `{}`{} | {} | {} |\n", code.code, code.name,
                                code.text.empty() ? "" : fmt::format("<br>\"{}\"", code.text), cell(code.meaning),
                                cell(code.action));
        }
    }
    return text;
}

std::string reason_table() {
    std::string text =
        "\n### Health: why `oxrctl status` does not call a host well\n\n"
        "| Reason, and how it is told | Health | Meaning | What to do |\n|---|---|---|---|\n";
    for (const ReasonEntry& reason : catalogue().reasons) {
        text += fmt::format("| `{}`<br>\"{}\" | {} | {} | {} |\n", reason.name, fmt::join(reason.texts, "\"<br>\""),
                            reason.health, cell(reason.meaning), cell(reason.action));
    }
    return text;
}

}  // namespace

std::string explanation_text(const Explanation& explanation, std::size_t left_out) {
    std::string text;
    for (const ExplainedMessage& message : explanation.messages) {
        text += (text.empty() ? "" : "\n") + message_text(message);
    }
    for (const CodeEntry* const code : explanation.codes) {
        text += (text.empty() ? "" : "\n") + code_text(*code);
    }
    for (const ReasonEntry* const reason : explanation.reasons) {
        text += (text.empty() ? "" : "\n") + reason_text(*reason);
    }
    if (left_out > 0) {
        text += fmt::format("\nAnd {} more. Give more words to have fewer.\n", left_out);
    }
    return text;
}

std::string explanation_json(const Explanation& explanation, std::size_t left_out) {
    Json messages = Json::array();
    for (const ExplainedMessage& message : explanation.messages) {
        messages.push_back(message_json(message));
    }
    Json codes = Json::array();
    for (const CodeEntry* const code : explanation.codes) {
        codes.push_back(code_json(*code));
    }
    Json reasons = Json::array();
    for (const ReasonEntry* const reason : explanation.reasons) {
        reasons.push_back(reason_json(*reason));
    }
    return json_text({{"version", JSON_VERSION},
                      {"messages", messages},
                      {"codes", codes},
                      {"reasons", reasons},
                      {"left_out", left_out}});
}

std::string catalogue_markdown() {
    return "## Messages and what to do\n\n"
           "Each message of the log, then the codes and the reasons of `oxrctl status`. `oxrctl explain` shows a "
           "single one; it takes a whole line of "
           "the\n"
           "log too. `%s`, `%d` and the like stand for what the message tells. \"The next pass\" comes with the next\n"
           "cycle, after `interval` seconds.\n" +
           message_tables() + code_table("OXD", "OXD status: the answer to a renewal") +
           code_table("PSP", "PSP status: the answer of the path-selection plug-in") + reason_table();
}

}  // namespace oxrctl
