#include "ScriptCommands.h"

#include <fstream>
#include <iostream>
#include <thread>

#include "Commands.h"
#include "ResourceArgs.h"

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
    if (quote != 0) throw UsageError{"unterminated quote", kExitMalformed};
    if (inWord) words.push_back(std::move(word));
    return words;
}

int runScript(Context& ctx, std::istream& in, const std::string& name, bool keepGoing) {
    ctx.scriptMode = true;
    int last = kExitOk;
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
        if (rc == kExitOk) continue;
        ctx.out.error(name + ":" + std::to_string(number) + ": '" + line + "' exited with " +
                      std::to_string(rc));
        last = rc;
        if (!keepGoing) return rc;
    }
    return last;
}

void bindRun(CLI::App& app, RunOptions& o) {
    app.add_option("file", o.file, "script file, or -")->required();
    app.add_flag("-k,--keep-going", o.keepGoing, "go on after a failing line");
}

int runRun(Context& ctx, RunOptions& o) {
    if (o.file == "-") return runScript(ctx, std::cin, "stdin", o.keepGoing);
    std::ifstream in(o.file);
    if (!in) throw UsageError{"cannot read " + o.file, kExitUnknownName};
    return runScript(ctx, in, o.file, o.keepGoing);
}

void bindSleep(CLI::App& app, SleepOptions& o) {
    app.add_option("ms", o.ms, "milliseconds")->required();
}

int runSleep(Context&, SleepOptions& o) {
    std::this_thread::sleep_for(std::chrono::milliseconds(parseInt(o.ms, "ms")));
    return kExitOk;
}

void bindAwait(CLI::App& app, AwaitOptions& o) {
    app.add_option("count", o.count, "total callbacks")->required();
    app.add_option("--timeout", o.timeout, "ms");
}

int runAwait(Context& ctx, AwaitOptions& o) {
    const size_t total = parseInt(o.count, "count");
    if (!ctx.awaitCallbacks(total, std::chrono::milliseconds(parseInt(o.timeout, "timeout")))) {
        ctx.out.error("heard " + std::to_string(ctx.callbacksHeard()) + " callbacks, waited for " +
                      o.count);
        return kExitFailed;
    }
    return kExitOk;
}

void bindEcho(CLI::App& app, EchoOptions& o) {
    app.add_option("words", o.words, "text");
}

int runEcho(Context& ctx, EchoOptions& o) {
    std::string text;
    for (const auto& word : o.words) text += (text.empty() ? "" : " ") + word;
    ctx.out.note(text);
    return kExitOk;
}

}  // namespace velactl
