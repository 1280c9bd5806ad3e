// ICE agent cost, on the in-memory network of the tests (no sockets, no clock):
//   conclude: two agents from Start to both ends concluded, STUN coding included (per run);
//   form_lists: Start of an agent with 12 x 12 candidates, i.e. pairing, sort and pruning of 40 pairs.
#include <benchmark/benchmark.h>

#include <memory>

#include "../../tests/icelib/ice_sim.h"

namespace {

using namespace icetest;

template <class T>
void Conclude(benchmark::State& state)
{
    auto insts = std::make_unique<typename T::Inst[]>(2);
    auto net = std::make_unique<SimNet<T>>();
    for (auto _ : state) {
        *net = SimNet<T>{};
        net->Init(&insts[0], &insts[1], DefaultConfig<T>());
        for (int e = 0; e < 2; ++e) {
            net->AddStream(e, 0);
            net->AddCandidate(e, 0, e ? "198.51.100.1" : "192.0.2.1", 5000, 1);
            net->AddCandidate(e, 0, e ? "198.51.100.1" : "192.0.2.1", 5001, 2);
        }
        net->Exchange();
        net->Start(0, true, 1);
        net->Start(1, false, 2);
        if (!net->Run(500)) state.SkipWithError("no conclusion");
    }
}

template <class T>
void FormLists(benchmark::State& state)
{
    auto insts = std::make_unique<typename T::Inst[]>(2);
    auto net = std::make_unique<SimNet<T>>();
    net->Init(&insts[0], &insts[1], DefaultConfig<T>());
    char ip[32];
    for (int e = 0; e < 2; ++e) {
        net->AddStream(e, 0);
        for (int i = 1; i <= 12; ++i) {
            std::snprintf(ip, sizeof ip, e ? "198.51.100.%d" : "192.0.2.%d", i);
            net->AddCandidate(e, 0, ip, 5000, 1, static_cast<uint16_t>(65536 - i));
        }
    }
    net->Exchange();
    for (auto _ : state) {
        insts[0].iceSupportVerified = false;
        insts[0].streamControllers[0].checkList.ufragLocal[0] = '\0';  // forms anew on every Start
        benchmark::DoNotOptimize(T::Start(&insts[0], true, 1));
    }
}

BENCHMARK_TEMPLATE(Conclude, QloxProfile)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(Conclude, ZynProfile)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(FormLists, QloxProfile)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(FormLists, ZynProfile)->Unit(benchmark::kMicrosecond);

}  // namespace
