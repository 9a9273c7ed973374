// ispiaas-bench: the module's requests against their floors.
//
//   ispiaas-bench [benchmark flags]  Google Benchmark: module/<case> and floor/<case>,
//                                    with heap allocations per request as a counter
//   ispiaas-bench --floor-ratio      CPU time per request of module and floor, their ratio
//                                    per case, and the worst ratio last
//   ispiaas-bench --allocs           heap allocations per request, module and floor
//   ispiaas-bench --threads [floor]  requests per second on two threads against one, of the
//                                    module's requests or of their floors
//   ispiaas-bench --callgrind N      N requests per case and side between callgrind
//                                    dumps (run by scripts/bench-callgrind)
//   ispiaas-bench --smoke            every case once; fails when a module's result or
//                                    response differs from its floor's
#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#define BENCH_HAS_CALLGRIND 1
#endif

#include "cases.h"

namespace bench {
namespace {

enum class Side { Module, Floor };

int RunOnce(const Case& c, Side side, Request& r)
{
    const int rc = side == Side::Module ? c.module(r) : c.floor(r);
    r.End();
    return rc;
}

std::string Slug(const Case& c)
{
    std::string s = c.name;
    std::replace(s.begin(), s.end(), ' ', '/');
    return s;
}

void Measure(benchmark::State& state, const Case* c, Side side)
{
    Request r(c->method, c->url, c->body);
    const AllocCount before = Allocations();
    for (auto _ : state) {
        benchmark::DoNotOptimize(RunOnce(*c, side, r));
    }
    const AllocCount after = Allocations();
    state.counters["allocs"] =
        benchmark::Counter(static_cast<double>(after.allocs - before.allocs), benchmark::Counter::kAvgIterations);
    state.SetItemsProcessed(state.iterations());
}

double CpuNow()
{
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) * 1e9 + static_cast<double>(ts.tv_nsec);
}

// CPU time per request of module and floor, measured in pairs of adjacent
// batches of about half a millisecond, module first in one round and floor
// first in the next: the median of each side's batches and the median of
// the pairs' ratios. Two adjacent batches see the same machine, so a stretch
// in which another process held the cores or the caches moves both; the
// medians leave out the pairs it split.
struct Pair {
    double module;
    double floor;
    double ratio;
};

double Median(std::vector<double> v)
{
    std::nth_element(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2), v.end());
    return v[v.size() / 2];
}

Pair MedianOf(const Case& c, int rounds)
{
    Request rm(c.method, c.url, c.body);
    Request rf(c.method, c.url, c.body);
    int batch = 1;
    for (double start = CpuNow(); CpuNow() - start < 2e6; batch *= 2) {
        for (int i = 0; i < batch; ++i) {
            RunOnce(c, Side::Module, rm);
            RunOnce(c, Side::Floor, rf);
        }
    }
    std::vector<double> module, floor, ratio;
    for (int round = 0; round < rounds; ++round) {
        const Side order[2] = {round % 2 == 0 ? Side::Module : Side::Floor,
                               round % 2 == 0 ? Side::Floor : Side::Module};
        double perRequest[2] = {};
        for (Side side : order) {
            Request& r = side == Side::Module ? rm : rf;
            const double start = CpuNow();
            for (int i = 0; i < batch; ++i) {
                RunOnce(c, side, r);
            }
            perRequest[side == Side::Module ? 0 : 1] = (CpuNow() - start) / batch;
        }
        module.push_back(perRequest[0]);
        floor.push_back(perRequest[1]);
        ratio.push_back(perRequest[0] / perRequest[1]);
    }
    return {Median(module), Median(floor), Median(ratio)};
}

int FloorRatio()
{
    double worst = 0;
    std::printf("%-24s %12s %12s %7s\n", "request", "module ns", "floor ns", "ratio");
    for (size_t i = 0; i < kCaseCount; ++i) {
        const Pair p = MedianOf(kCases[i], 41);
        worst = std::max(worst, p.ratio);
        std::printf("%-24s %12.0f %12.0f %7.2f\n", kCases[i].name, p.module, p.floor, p.ratio);
    }
    std::printf("overhead-vs-floor: %.2f\n", worst);
    return 0;
}

int Allocs()
{
    constexpr int kRequests = 100;
    std::printf("%-24s %14s %14s %16s %16s\n", "request", "module allocs", "floor allocs", "module reallocs",
                "floor reallocs");
    for (size_t i = 0; i < kCaseCount; ++i) {
        const Case& c = kCases[i];
        AllocCount counts[2];
        for (Side side : {Side::Module, Side::Floor}) {
            Request r(c.method, c.url, c.body);
            RunOnce(c, side, r);
            const AllocCount before = Allocations();
            for (int n = 0; n < kRequests; ++n) {
                RunOnce(c, side, r);
            }
            const AllocCount after = Allocations();
            counts[side == Side::Module ? 0 : 1] = {after.allocs - before.allocs, after.reallocs - before.reallocs};
        }
        std::printf("%-24s %14.1f %14.1f %16.1f %16.1f\n", c.name, counts[0].allocs / double(kRequests),
                    counts[1].allocs / double(kRequests), counts[0].reallocs / double(kRequests),
                    counts[1].reallocs / double(kRequests));
    }
    return 0;
}

// `threads` threads, each with its own request records, each making
// `perThread` requests from a common start: requests per second of wall
// time, CPU nanoseconds per request averaged over the threads, and the cores
// the threads got (their CPU time over the wall time). A CPU time that rises
// with the second thread shows the threads slowing each other down; the
// cores show whether they ran side by side at all, without which neither
// figure says much.
struct Run {
    double perSecond;
    double cpuPerRequest;
    double cores;
};

Run Throughput(const Case& c, Side side, int threads, int perThread)
{
    std::atomic<int> ready{0};
    std::atomic<bool> go{false};
    std::vector<double> cpu(static_cast<size_t>(threads));
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            Request r(c.method, c.url, c.body);
            RunOnce(c, side, r);
            ready++;
            while (!go.load()) {
            }
            const double start = CpuNow();
            for (int n = 0; n < perThread; ++n) {
                RunOnce(c, side, r);
            }
            cpu[static_cast<size_t>(t)] = CpuNow() - start;
        });
    }
    while (ready.load() != threads) {
    }
    timespec t0{}, t1{};
    clock_gettime(CLOCK_MONOTONIC, &t0);
    go = true;
    for (std::thread& w : workers) {
        w.join();
    }
    clock_gettime(CLOCK_MONOTONIC, &t1);
    const double seconds = static_cast<double>(t1.tv_sec - t0.tv_sec) + (t1.tv_nsec - t0.tv_nsec) / 1e9;
    double cpuSum = 0;
    for (double v : cpu) {
        cpuSum += v;
    }
    return {threads * static_cast<double>(perThread) / seconds, cpuSum / threads / perThread, cpuSum / 1e9 / seconds};
}

int Threads(Side side)
{
    double worst = 1e300;
    double worstCpu = 1e300;
    double fewestCores = 1e300;
    std::printf("%-24s %13s %13s %8s %11s %11s %9s %6s\n", "request", "1 thread /s", "2 threads /s", "scaling",
                "cpu ns 1t", "cpu ns 2t", "by cpu", "cores");
    for (size_t i = 0; i < kCaseCount; ++i) {
        const Case& c = kCases[i];
        // About a tenth of a second per run; the best of five runs each.
        const int perThread = std::max(1000, static_cast<int>(Throughput(c, side, 1, 1000).perSecond / 10));
        Run one = {0, 1e300, 0};
        Run two = {0, 1e300, 0};
        for (int round = 0; round < 5; ++round) {
            for (auto [threads, best] : {std::pair{1, &one}, std::pair{2, &two}}) {
                const Run run = Throughput(c, side, threads, perThread);
                if (run.perSecond > best->perSecond) {
                    best->perSecond = run.perSecond;
                    best->cores = run.cores;
                }
                best->cpuPerRequest = std::min(best->cpuPerRequest, run.cpuPerRequest);
            }
        }
        const double scaling = two.perSecond / one.perSecond;
        const double byCpu = 2 * one.cpuPerRequest / two.cpuPerRequest;
        worst = std::min(worst, scaling);
        worstCpu = std::min(worstCpu, byCpu);
        fewestCores = std::min(fewestCores, two.cores);
        std::printf("%-24s %13.0f %13.0f %8.2f %11.0f %11.0f %9.2f %6.2f\n", c.name, one.perSecond, two.perSecond,
                    scaling, one.cpuPerRequest, two.cpuPerRequest, byCpu, two.cores);
    }
    std::printf("two-threads-vs-one by CPU time per request (worst): %.2f\n", worstCpu);
    if (fewestCores < 1.9) {
        std::printf("busy machine: a best 2-thread run got only %.2f cores, so its throughput says little\n",
                    fewestCores);
    }
    std::printf("two-threads-vs-one (worst): %.2f\n", worst);
    return 0;
}

int Callgrind(int requests)
{
#ifdef BENCH_HAS_CALLGRIND
    FixRandomBytes();
    for (size_t i = 0; i < kCaseCount; ++i) {
        const Case& c = kCases[i];
        for (Side side : {Side::Module, Side::Floor}) {
            Request r(c.method, c.url, c.body);
            RunOnce(c, side, r);
            CALLGRIND_TOGGLE_COLLECT;
            for (int n = 0; n < requests; ++n) {
                RunOnce(c, side, r);
            }
            CALLGRIND_TOGGLE_COLLECT;
            const std::string label = std::string(side == Side::Module ? "module|" : "floor|") + c.name;
            CALLGRIND_DUMP_STATS_AT(label.c_str());
        }
    }
    return 0;
#else
    (void)requests;
    std::fprintf(stderr, "built without valgrind/callgrind.h\n");
    return 1;
#endif
}

// `report`: the count line even when every request matches.
int Smoke(bool report)
{
    int failures = 0;
    for (size_t i = 0; i < kCaseCount; ++i) {
        const Case& c = kCases[i];
        Request rm(c.method, c.url, c.body);
        Request rf(c.method, c.url, c.body);
        const int module = c.module(rm);
        const int floor = c.floor(rf);
        if (module != 0 || floor != module || rm.Response() != rf.Response()) {
            ++failures;
            std::printf("%s: module %d [%.*s]\n%s: floor %d [%.*s]\n", c.name, module,
                        static_cast<int>(rm.Response().size()), rm.Response().data(), c.name, floor,
                        static_cast<int>(rf.Response().size()), rf.Response().data());
        }
    }
    if (report || failures != 0) {
        std::printf("%zu requests, %d differ from their floor\n", kCaseCount, failures);
    }
    return failures == 0 ? 0 : 1;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv)
{
    using namespace bench;
    if (argc >= 2) {
        const std::string mode = argv[1];
        if (mode == "--smoke") {
            return Smoke(true);
        }
        if (mode == "--floor-ratio") {
            return Smoke(false) != 0 ? 1 : FloorRatio();
        }
        if (mode == "--allocs") {
            return Allocs();
        }
        if (mode == "--threads") {
            return Threads(argc >= 3 && std::string(argv[2]) == "floor" ? Side::Floor : Side::Module);
        }
        if (mode == "--callgrind") {
            return Callgrind(argc >= 3 ? std::atoi(argv[2]) : 200);
        }
    }
    for (size_t i = 0; i < kCaseCount; ++i) {
        const Case* c = &kCases[i];
        benchmark::RegisterBenchmark(("module/" + Slug(*c)).c_str(), Measure, c, Side::Module);
        benchmark::RegisterBenchmark(("floor/" + Slug(*c)).c_str(), Measure, c, Side::Floor);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
