// tolvane-bench-content NAME [--seconds N] [--phase MS] [--seed N] [--log FILE]: changes the screen
// of $DISPLAY in the way of that name. It says "ready" on stdout once everything is there and
// where its counter is, waits for a line on stdin, runs, says "done", and leaves with the next line
// or the end of stdin. The log has one line for each step: number, CLOCK_MONOTONIC in nanoseconds
// before and after, and what else the content knows.

#include "bench/side-by-side/Content.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct Options {
    std::string name;
    double seconds = 10;
    int phaseMs = 0;
    std::uint32_t seed = 1;
    std::string log;
};

struct Step {
    std::uint32_t number;
    std::int64_t before;
    std::int64_t after;
    std::string text;
};

Options optionsFromArguments(int argc, char **argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (!argument.starts_with("--")) {
            options.name = argument;
            continue;
        }
        if (i + 1 == argc)
            failBench(argument + " needs a value");
        const char *value = argv[++i];
        if (argument == "--seconds")
            options.seconds = std::strtod(value, nullptr);
        else if (argument == "--phase")
            options.phaseMs = static_cast<int>(std::strtol(value, nullptr, 10));
        else if (argument == "--seed")
            options.seed = static_cast<std::uint32_t>(std::strtoul(value, nullptr, 10));
        else if (argument == "--log")
            options.log = value;
        else
            failBench("unknown option " + argument);
    }
    return options;
}

void waitForLine()
{
    int byte = 0;
    while ((byte = std::getchar()) != EOF && byte != '\n') { }
}

void sayReady(const Content &content)
{
    if (const auto place = content.counter())
        std::printf("ready counter %d %d %d %d\n", place->x, place->y, place->cellWidth,
                    place->cellHeight);
    else if (const auto area = content.pointerArea())
        std::printf("ready pointer %d %d %d %d\n", area->x, area->y, area->width, area->height);
    else
        std::printf("ready nothing 0 0 0 0\n");
    static_cast<void>(std::fflush(stdout));
}

/// Steps fall on whole thirtieths of the monotonic clock plus the phase, so that a phase means the
/// same in every run; the grid never slips.
std::vector<Step> runContent(Content &content, const Options &options)
{
    constexpr std::int64_t kGridNs = 33'333'333;
    const auto duration = static_cast<std::int64_t>(options.seconds * 1e9);
    const std::int64_t start
        = (monotonicNs() / kGridNs + 2) * kGridNs + options.phaseMs * std::int64_t{1'000'000};
    std::vector<Step> steps;
    steps.reserve(static_cast<std::size_t>(options.seconds * 260) + 1);
    std::int64_t due = start;
    for (std::uint32_t number = 1; due < start + duration && content.interval(number) > 0;
         ++number) {
        sleepUntilNs(due);
        const std::int64_t before = monotonicNs();
        content.update(number);
        steps.push_back({number, before, monotonicNs(), content.logText()});
        due += content.interval(number);
    }
    sleepUntilNs(start + duration);
    return steps;
}

void writeLog(const std::string &path, const std::vector<Step> &steps)
{
    PXHandle<std::FILE, closeBenchFile> log(std::fopen(path.c_str(), "we"));
    if (!log)
        failBench("cannot write " + path);
    for (const auto &step : steps)
        static_cast<void>(std::fprintf(log.get(), "%u %lld %lld %s\n", step.number,
                                       static_cast<long long>(step.before),
                                       static_cast<long long>(step.after), step.text.c_str()));
}

} // namespace

int main(int argc, char **argv)
{
    const Options options = optionsFromArguments(argc, argv);
    const BenchScreen screen;
    const auto content = contentNamed(options.name, screen, options.seed);
    if (!content)
        failBench(std::string("name one of: ") + kContentNames);
    sayReady(*content);
    waitForLine();
    const auto steps = runContent(*content, options);
    if (!options.log.empty())
        writeLog(options.log, steps);
    std::puts("done");
    static_cast<void>(std::fflush(stdout));
    waitForLine();
    return 0;
}
