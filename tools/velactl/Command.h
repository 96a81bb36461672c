// What a velactl command is: a row of the command table (CommandTable.cpp). Each command keeps
// its options in a struct of its own; `bind` declares them on the command's CLI11 parser and
// `run` acts on them once the line has parsed.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>

#include "Context.h"

namespace velactl {

// Runs a parsed command; the exit code.
using Runner = std::function<int()>;
// Declares a command's options on `app` and returns what runs it.
using Attach = Runner (*)(CLI::App& app, Context& ctx);

enum class Needs { kNothing, kService };
// Where a command is offered: on velactl's own command line, in `run` scripts, or both.
enum class Where { kAnywhere, kTopLevel, kScript };

struct CommandDef {
    const char* name;
    const char* help;
    Needs needs;
    Where where;
    Attach attach;
};

namespace detail {
template <typename F>
struct OptionsOf;
template <typename O>
struct OptionsOf<void (*)(CLI::App&, O&)> {
    using type = O;
};
}  // namespace detail

// Builds an Attach from a bind function `void(CLI::App&, Options&)` and a run function
// `int(Context&, Options&)`. The options live as long as the parser that fills them.
template <auto Bind, auto Run>
Runner attach(CLI::App& app, Context& ctx) {
    using Options = typename detail::OptionsOf<decltype(Bind)>::type;
    auto options = std::make_shared<Options>();
    Bind(app, *options);
    return [options, &ctx] { return Run(ctx, *options); };
}

// A command with no options.
template <auto Run>
Runner attachPlain(CLI::App&, Context& ctx) {
    return [&ctx] { return Run(ctx); };
}

}  // namespace velactl
