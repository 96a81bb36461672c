#include "ScriptCommands.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <thread>

#include "Commands.h"
#include "Interrupt.h"
#include "Limits.h"
#include "NumberOptions.h"
#include "Reporting.h"
#include "ResourceArgs.h"
#include "ServiceWatch.h"

namespace velactl {

std::vector<std::string> splitWords(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    bool inWord = false;
    char quote = 0;
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote != 0) {
            if (c == quote) {
                quote = 0;
            } else if (c == '\\' && quote == '"' && i + 1 < line.size()) {
                word += line[++i];
            } else {
                word += c;
            }
        } else if (c == '\'' || c == '"') {
            quote = c;
            inWord = true;
        } else if (c == '\\' && i + 1 < line.size()) {
            word += line[++i];
            inWord = true;
        } else if (isspace(static_cast<unsigned char>(c))) {
            if (inWord) words.push_back(std::move(word));
            word.clear();
            inWord = false;
        } else if (c == '#' && !inWord) {
            break;  // a comment to the end of the line
        } else {
            word += c;
            inWord = true;
        }
    }
    if (quote != 0) throw UsageError{"unterminated quote", kExitData};
    if (inWord) words.push_back(std::move(word));
    return words;
}

int runScript(Context& ctx, std::istream& in, const std::string& name, bool keepGoing,
              bool keepListening) {
    ctx.scriptMode = true;
    int last = kExitOk;
    // Watched from the first listener on: a listener is what a death takes away unseen.
    std::unique_ptr<DeathWatch> death;
    bool deathSaid = false;
    size_t number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        std::vector<std::string> words;
        try {
            words = splitWords(line);
        } catch (const UsageError& e) {
            ctx.out.error(name + ":" + std::to_string(number) + ": " + e.message);
            return e.code;
        }
        if (words.empty()) continue;
        for (std::string& word : words) {
            if (word == "$handle") word = std::to_string(ctx.lastHandle);
            if (word == "$listener") word = std::to_string(ctx.lastListener);
        }
        Commands commands(ctx, Commands::Mode::kScript);
        const int rc = commands.execute(words);
        if (ctx.lastListener != 0 && !death && !ctx.embedded) {
            death = std::make_unique<DeathWatch>();
        }
        if (death && death->died() && !deathSaid) {
            deathSaid = true;
            ctx.out.error(name + ":" + std::to_string(number) +
                          ": the service died; the listeners this script registered (the last "
                          "was " +
                          std::to_string(ctx.lastListener) + ") went with it" +
                          (keepListening ? "; going on (--keep-listening)" : ""));
            if (!keepListening) return kExitUnavailable;
        }
        if (rc == kExitOk) continue;
        ctx.out.error(name + ":" + std::to_string(number) + ": '" + clip(line, kEchoLimit) +
                      "' exited with " + std::to_string(rc));
        last = rc;
        if (!keepGoing) return rc;
    }
    return last;
}

namespace {

const char kScriptHelp[] =
        "\nA script holds one velactl command per line, without the word velactl; '#' starts a\n"
        "comment, quotes group words, a backslash escapes the next character. Listeners stay\n"
        "in the background while the script goes on. Scripts have four words of their own:\n"
        "  sleep MS              pause for MS milliseconds\n"
        "  await N [--timeout MS]\n"
        "                        wait until N callbacks in all have been heard in this run\n"
        "                        (default timeout 5000 ms)\n"
        "  echo WORD...          print a line\n"
        "  $handle, $listener    the last request handle and listener handle printed\n"
        "The script stops at the first failing line (unless --keep-going) with its exit code, and\n"
        "when the service dies under its listeners (unless --keep-listening) with 69.\n";

}  // namespace

void bindRun(CLI::App& app, RunOptions& o) {
    app.footer(kScriptHelp);
    app.add_option("FILE", o.file, "script file, or - for standard input")
            ->required()
            ->type_name("");
    app.add_flag("-k,--keep-going", o.keepGoing, "go on after a failing line");
    app.add_flag("--keep-listening", o.keepListening,
                 "go on when the service dies and its listeners are lost (by default the script "
                 "stops there with 69)");
}

int runRun(Context& ctx, RunOptions& o) {
    if (o.file == "-") return runScript(ctx, std::cin, "stdin", o.keepGoing, o.keepListening);
    std::ifstream in(o.file);
    if (!in) throw UsageError{"cannot read " + o.file + ": " + strerror(errno), kExitNoInput};
    return runScript(ctx, in, o.file, o.keepGoing, o.keepListening);
}

void bindSleep(CLI::App& app, SleepOptions& o) {
    addNumber(app, "MS", o.ms, "milliseconds", kTimeoutMs, "MS")->required();
}

int runSleep(Context&, SleepOptions& o) {
    InterruptScope scope;
    waitFor([] { return false; }, std::chrono::milliseconds(o.ms));
    return interrupted() ? kExitInterrupted : kExitOk;
}

void bindAwait(CLI::App& app, AwaitOptions& o) {
    addNumber(app, "N", o.count, "callbacks heard in this run, in all", kNonNegative, "N")
            ->required();
    addNumber(app, "--timeout", o.timeoutMs, "how long to wait, in ms", kTimeoutMs, "MS");
}

int runAwait(Context& ctx, AwaitOptions& o) {
    const size_t total = static_cast<size_t>(o.count);
    InterruptScope scope;
    if (!waitFor([&] { return ctx.callbacksHeard() >= total; },
                 std::chrono::milliseconds(o.timeoutMs))) {
        if (interrupted()) return kExitInterrupted;
        ctx.out.error("heard " + std::to_string(ctx.callbacksHeard()) + " callbacks, waited for " +
                      std::to_string(o.count));
        return kExitNoValue;
    }
    return kExitOk;
}

void bindEcho(CLI::App& app, EchoOptions& o) {
    app.add_option("WORD", o.words, "text")->type_name("");
}

int runEcho(Context& ctx, EchoOptions& o) {
    std::string text;
    for (const auto& word : o.words) text += (text.empty() ? "" : " ") + word;
    ctx.out.note(text);
    return kExitOk;
}

}  // namespace velactl
