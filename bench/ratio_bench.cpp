// bench_ratio: what RatioTime's operations cost next to FFmpeg's AVRational and plain doubles, and
// what `a + b` costs from Lua, followed by a summary against the speed goals.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

extern "C" {
#include <libavutil/rational.h>
}

#include "KyHost.h"
#include "RatioTime.h"

namespace {

constexpr double kNativeGoalNs = 50.0;
constexpr double kLuaGoalNs = 300.0;

// A rate and a frame duration: their sum does not reduce, their product reduces to 5/4, so multiply
// carries a full normalisation.
constexpr RatioTime kRatioA{30000, 1001};
constexpr RatioTime kRatioB{1001, 24000};
constexpr AVRational kAvA{30000, 1001};
constexpr AVRational kAvB{1001, 24000};
constexpr double kNumberA = 30000.0 / 1001.0;
constexpr double kNumberB = 1001.0 / 24000.0;
// 1001*2*3*5 / (30030*7): every one of the six primes divides out once, leaving 1/7.
constexpr RatioTime kRatioUnreduced{1001 * 2 * 3 * 5, 30030 * 7};
// Not whole, so RatioTime_fromNumber takes its scaling path.
constexpr double kFraction = 29.97;

// The Lua archive's text: two 16-digit hex fields and a slash, plus the terminator.
constexpr size_t kArchiveLength = 33;
using ArchiveText = std::array<char, kArchiveLength + 1>;

// Passes value through an optimisation barrier, so the compiler can neither fold an operation on
// constant inputs nor hoist it out of the timing loop.
template <class T>
T opaque(T value) {
    benchmark::DoNotOptimize(value);
    return value;
}

ArchiveText archiveFields(int64_t numerator, int64_t denominator) {
    ArchiveText text;
    std::snprintf(text.data(), text.size(), "%016llx/%016llx", static_cast<unsigned long long>(numerator),
                  static_cast<unsigned long long>(denominator));
    return text;
}

std::pair<int64_t, int64_t> restoreFields(const ArchiveText& text) {
    unsigned long long numerator = 0;
    unsigned long long denominator = 0;
    std::sscanf(text.data(), "%16llx/%16llx", &numerator, &denominator);
    return {static_cast<int64_t>(numerator), static_cast<int64_t>(denominator)};
}

// kRatioA and kAvA hold the same value, so both restore from the same text.
const ArchiveText kArchived = archiveFields(kRatioA.numerator, kRatioA.denominator);

RatioTime ratioAdd() {
    RatioTime sum = opaque(kRatioA);
    const RatioTime other = opaque(kRatioB);
    RatioTime_addSigned(&sum, &other, 1);
    return sum;
}

RatioTime ratioMultiply() { return RatioTime_multiply(opaque(kRatioA), opaque(kRatioB)); }

// The other comparisons take the same path through RatioTime_toNumber.
int ratioCompare() { return RatioTime_less(opaque(kRatioA), opaque(kRatioB)); }

RatioTime ratioNormalize() {
    RatioTime value = opaque(kRatioUnreduced);
    RatioTime_normalize(&value);
    return value;
}

RatioTime ratioFromNumber() { return RatioTime_fromNumber(opaque(kFraction)); }

ArchiveText ratioArchive() {
    RatioTime value = opaque(kRatioA);
    RatioTime_normalize(&value);  // the Lua archive normalises before it writes
    ArchiveText text;
    RatioTime_archive(value, text.data());
    return text;
}

RatioTime ratioRestore() {
    RatioTime value{0, 1};
    RatioTime_unarchive(opaque(kArchived.data()), &value);
    return value;
}

AVRational avAdd() { return av_add_q(opaque(kAvA), opaque(kAvB)); }
AVRational avMultiply() { return av_mul_q(opaque(kAvA), opaque(kAvB)); }
int avCompare() { return av_cmp_q(opaque(kAvA), opaque(kAvB)) < 0; }

AVRational avNormalize() {
    AVRational value;
    av_reduce(&value.num, &value.den, opaque(kRatioUnreduced.numerator), opaque(kRatioUnreduced.denominator),
              INT_MAX);
    return value;
}

// The full int range, FFmpeg's usual bound when no precision is imposed.
AVRational avFromNumber() { return av_d2q(opaque(kFraction), INT_MAX); }

ArchiveText avArchive() {
    const AVRational value = opaque(kAvA);
    return archiveFields(value.num, value.den);
}

AVRational avRestore() {
    const auto [numerator, denominator] = restoreFields(kArchived);
    return AVRational{static_cast<int>(numerator), static_cast<int>(denominator)};
}

double numberAdd() { return opaque(kNumberA) + opaque(kNumberB); }
double numberMultiply() { return opaque(kNumberA) * opaque(kNumberB); }
bool numberCompare() { return opaque(kNumberA) < opaque(kNumberB); }
double numberFromNumber() { return opaque(kFraction); }

// "%a" is exact, so the text restores to the very same double.
ArchiveText numberArchive() {
    ArchiveText text;
    std::snprintf(text.data(), text.size(), "%a", opaque(kNumberA));
    return text;
}

const ArchiveText kNumberArchived = numberArchive();

double numberRestore() {
    double value = 0.0;
    std::sscanf(kNumberArchived.data(), "%la", &value);
    return value;
}

template <auto operation>
void measure(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(operation());
}

using Benchmark = void (*)(benchmark::State&);

enum Kind { kRatio, kAv, kNumber, kKindCount };
const char* const kKindNames[kKindCount] = {"RatioTime", "AVRational", "double"};

struct Operation {
    const char* name;
    Benchmark byKind[kKindCount];  // nullptr where a kind has no such operation
};

const Operation kOperations[] = {
    {"add", {measure<ratioAdd>, measure<avAdd>, measure<numberAdd>}},
    {"multiply", {measure<ratioMultiply>, measure<avMultiply>, measure<numberMultiply>}},
    {"compare", {measure<ratioCompare>, measure<avCompare>, measure<numberCompare>}},
    {"normalize", {measure<ratioNormalize>, measure<avNormalize>, nullptr}},
    {"fromNumber", {measure<ratioFromNumber>, measure<avFromNumber>, measure<numberFromNumber>}},
    {"archive", {measure<ratioArchive>, measure<avArchive>, measure<numberArchive>}},
    {"restore", {measure<ratioRestore>, measure<avRestore>, measure<numberRestore>}},
};

std::string benchmarkName(const Operation& operation, Kind kind) {
    return std::string(operation.name) + "/" + kKindNames[kind];
}

// Returns the loop that adds two RatioTime values, the same loop empty, and the two values.
constexpr const char* kLuaLoops = R"(
local RatioTime = import("RatioTime")
local function add(a, b, n) for i = 1, n do local c = a + b end end
local function empty(a, b, n) for i = 1, n do end end
return add, empty, RatioTime.makeRatioTime(30000, 1001), RatioTime.makeRatioTime(1, 1)
)";

constexpr const char* kLuaAdd = "lua/add";
constexpr const char* kLuaEmpty = "lua/emptyLoop";

// One Lua call runs a whole batch, so each iteration is one turn of the Lua loop and the cost of
// the call itself is spread over the batch.
void measureLua(benchmark::State& state, lua_State* L, int loop, int operands) {
    const benchmark::IterationCount count = state.max_iterations;
    while (state.KeepRunningBatch(count)) {
        lua_pushvalue(L, loop);
        lua_pushvalue(L, operands);
        lua_pushvalue(L, operands + 1);
        lua_pushnumber(L, static_cast<lua_Number>(count));
        if (lua_pcall(L, 3, 0, 0) != 0) {
            state.SkipWithError(lua_tostring(L, -1));
            lua_pop(L, 1);
            break;
        }
    }
}

// Prints the usual table and keeps each benchmark's CPU time per iteration for the summary.
class SummaryReporter : public benchmark::ConsoleReporter {
public:
    using ConsoleReporter::ConsoleReporter;

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
            // CPU time, as other load on the machine inflates wall time; of repeated runs the
            // fastest is the least disturbed.
            const double time = run.GetAdjustedCPUTime();
            const auto [entry, added] = nanoseconds_.emplace(run.benchmark_name(), time);
            if (!added) entry->second = std::min(entry->second, time);
        }
    }

    std::optional<double> nanoseconds(const std::string& name) const {
        const auto entry = nanoseconds_.find(name);
        if (entry == nanoseconds_.end()) return std::nullopt;
        return entry->second;
    }

private:
    std::map<std::string, double> nanoseconds_;
};

std::string cell(std::optional<double> value) {
    if (!value) return "-";
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", *value);
    return text;
}

const char* verdict(bool met) { return met ? "met" : "MISSED"; }

void printSummary(const SummaryReporter& reporter) {
    std::printf("\n%-12s %10s %11s %8s %8s   goal: RatioTime < %.0f ns and RT/AV <= 1\n", "CPU ns/op",
                "RatioTime", "AVRational", "double", "RT/AV", kNativeGoalNs);
    for (const Operation& operation : kOperations) {
        std::optional<double> times[kKindCount];
        for (int kind = 0; kind < kKindCount; ++kind) {
            times[kind] = reporter.nanoseconds(benchmarkName(operation, static_cast<Kind>(kind)));
        }
        std::optional<double> ratio;
        const char* goal = "-";
        if (times[kRatio] && times[kAv]) {
            ratio = *times[kRatio] / *times[kAv];
            goal = verdict(*times[kRatio] < kNativeGoalNs && *ratio <= 1.0);
        }
        std::printf("%-12s %10s %11s %8s %8s   %s\n", operation.name, cell(times[kRatio]).c_str(),
                    cell(times[kAv]).c_str(), cell(times[kNumber]).c_str(), cell(ratio).c_str(), goal);
    }

    const std::optional<double> add = reporter.nanoseconds(kLuaAdd);
    const std::optional<double> empty = reporter.nanoseconds(kLuaEmpty);
    std::printf("\nLua a + b: %s CPU ns/op, of which the empty loop takes %s ns   goal: < %.0f ns: %s\n",
                cell(add).c_str(), cell(empty).c_str(), kLuaGoalNs, add ? verdict(*add < kLuaGoalNs) : "-");
}

int fail(const std::string& message) {
    std::fprintf(stderr, "bench_ratio: %s\n", message.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

    for (const Operation& operation : kOperations) {
        for (int kind = 0; kind < kKindCount; ++kind) {
            if (operation.byKind[kind] == nullptr) continue;
            benchmark::RegisterBenchmark(benchmarkName(operation, static_cast<Kind>(kind)).c_str(),
                                         operation.byKind[kind])
                ->Unit(benchmark::kNanosecond);
        }
    }

    KyHost host;
    std::string error;
    const std::string bundle = KyHost::defaultBundleFolder();
    if (bundle.empty()) return fail("cannot find the toolkit bundle beside " + std::string(argv[0]));
    if (!host.loadBundle(bundle, &error)) return fail("cannot load the toolkit bundle: " + error);
    lua_State* L = host.state();
    const int base = lua_gettop(L);
    if (!host.runChunk(kLuaLoops, "ratio_bench", {}, &error)) return fail(error);
    const int addLoop = base + 1;
    const int emptyLoop = base + 2;
    const int operands = base + 3;
    benchmark::RegisterBenchmark(kLuaAdd, measureLua, L, addLoop, operands)->Unit(benchmark::kNanosecond);
    benchmark::RegisterBenchmark(kLuaEmpty, measureLua, L, emptyLoop, operands)->Unit(benchmark::kNanosecond);

    // Colour only on a terminal, as the default reporter does.
    SummaryReporter reporter(isatty(STDOUT_FILENO) ? SummaryReporter::OO_Color : SummaryReporter::OO_None);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    printSummary(reporter);
    benchmark::Shutdown();
    return 0;
}
