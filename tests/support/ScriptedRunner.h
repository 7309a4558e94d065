#pragma once

#include "KelvadromeKit/delivery/CommandRunning.h"
#include "KelvadromeKit/delivery/HostPlan.h"
#include "KelvadromeKit/delivery/LiveScripts.h"

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace kelvadrome::test {

/// Runs nothing: remembers each command and answers by what occurs in its line. A line is the program's name
/// and its arguments with a script's text replaced by its name: "osascript itermWrite /dev/ttys004 ABC key
/// 1"; a late input follows "<<<". The latest rule that fits holds; a command that none fits never starts. A
/// list of commands (";") is answered one by one, up to the first that fails.
class ScriptedRunner final : public CommandRunning {
public:
    struct Call {
        RunCommand command;
        double timeout = 0;
        std::string line;
    };
    using Answer = std::function<RunOutput()>;

    std::vector<Call> calls;
    std::size_t failing = std::string::npos; // the call of this number fails without a word

    static RunOutput says(std::string text, std::int32_t status = 0) {
        return {status, std::move(text), "", false};
    }

    void on(std::string part, Answer answer) { rules_.emplace_back(std::move(part), std::move(answer)); }
    void on(std::string part, RunOutput output) {
        on(std::move(part), [output] { return output; });
    }
    /// These answers in turn; the last one stays.
    void on(std::string part, std::vector<RunOutput> outputs) {
        on(std::move(part), [outputs, next = std::size_t{0}]() mutable {
            const auto i = std::min(next++, outputs.size() - 1);
            return outputs[i];
        });
    }

    Task<RunOutput> run(RunCommand command, double timeout) override {
        const auto number = calls.size();
        calls.push_back({command, timeout, line(command)});
        if (number == failing)
            co_return RunOutput{1, "", "", false};
        RunOutput all{0, "", "", false};
        for (const auto& piece : pieces(calls[number].line)) {
            auto one = command.input ? late(*command.input, piece, all.stdoutText, number) : answer(piece);
            one.stdoutText.insert(0, all.stdoutText);
            all = std::move(one);
            if (!all.succeeded())
                break;
        }
        co_return all;
    }

    /// The lines that hold `part`, in order.
    std::vector<std::string> lines(const std::string& part = "") const {
        std::vector<std::string> found;
        for (const auto& call : calls) {
            if (call.line.find(part) != std::string::npos)
                found.push_back(call.line);
        }
        return found;
    }

    static std::string line(const RunCommand& command) {
        std::string line = command.path.substr(command.path.rfind('/') + 1);
        for (std::size_t i = 0; i < command.args.size(); ++i) {
            const bool script = command.path == HostPlan::osascript && i < 2;
            if (script && i == 0)
                continue;
            line += " " + (script ? scriptName(command.args[i]) : command.args[i]);
        }
        return line;
    }

private:
    static std::vector<std::string> pieces(const std::string& line) {
        std::vector<std::string> list(1);
        for (std::size_t i = 0; i < line.size(); ++i) {
            if (line.compare(i, 3, " ; ") == 0) {
                list.emplace_back();
                i += 2;
            } else {
                list.back() += line[i];
            }
        }
        return list;
    }

    RunOutput answer(const std::string& piece) {
        for (auto rule = rules_.rbegin(); rule != rules_.rend(); ++rule) {
            if (piece.find(rule->first) != std::string::npos)
                return rule->second();
        }
        return {};
    }

    /// A piece of a command that gets its input when it says that it is ready.
    RunOutput late(
        const LateInput& input, const std::string& piece, const std::string& printed, std::size_t number) {
        if (piece.ends_with("display-message -p " + input.ready))
            return says(input.ready + "\n");
        if (!piece.ends_with("source-file -"))
            return answer(piece);
        const auto text = input.give(printed);
        calls[number].line += " <<< " + text.value_or("nothing");
        return text ? answer(*text) : says("");
    }

    static std::string scriptName(std::string_view text) {
        using namespace LiveScripts;
        const std::pair<std::string_view, const char*> names[] = {{itermList, "itermList"},
            {terminalList, "terminalList"}, {itermWrite, "itermWrite"}, {itermRead, "itermRead"},
            {itermLabel, "itermLabel"}, {itermFocus, "itermFocus"}, {terminalFocus, "terminalFocus"},
            {itermOpen, "itermOpen"}};
        for (const auto& [script, name] : names) {
            if (script == text)
                return name;
        }
        return "(no known script)";
    }

    std::vector<std::pair<std::string, Answer>> rules_;
};

} // namespace kelvadrome::test
