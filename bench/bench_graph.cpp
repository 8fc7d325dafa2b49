// The graph's two costs that every simulation pays: moving time and pulling
// through connected nodes, and a write that dirties many dependents. Each has
// the plain loop of the same arithmetic beside it.

#include "Host/Command/TcommandEngine.h"
#include "Host/Graph/TdnTime.h"
#include "Host/SceneCommands/TplugPath.h"
#include "Host/Session/Tsession.h"

#include <benchmark/benchmark.h>

// output = input + 1.
class TdnVSTbenchStep : public TdependNodeVS {
public:
    TdnVSTbenchStep() : input("input", "i", makeIffTag("BSIN")), output("output", "o", makeIffTag("BSOU")) {}
    void appendAttributes(TattributeList& list) override {
        TdependNodeVS::appendAttributes(list);
        list.addAttribute(&input);
        list.addAttribute(&output);
    }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        m.attributeAffects(&input, &output);
        return true;
    }
    TattributeDouble input, output;
};

class TbenchStep : public TdependNode {
    TDECLARE_NODE(TbenchStep, TdnVSTbenchStep)
public:
    bool computePlug(const Tplug& plug, TdataBlock& block) override {
        auto* vs = sVsData();
        if (plug.attribute() != &vs->output) return TdependNode::computePlug(plug, block);
        TdataHandle h = block.outputValue(&vs->output);
        h.set(block.inputValue(&vs->input).asDouble() + 1.0);
        h.setClean();
        return true;
    }
};

TDEFINE_NODE(TbenchStep, TdnVSTbenchStep, TdependNode, "benchStep", "BSTP")

namespace {

void BM_TimeChangeAndPullThroughChain(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    Tsession session;
    TdependGraph& g = session.graph();
    auto* vs = TbenchStep::sVsData();
    std::vector<TdependNode*> chain;
    for (int i = 0; i < n; ++i) chain.push_back(g.createNode("benchStep"));
    g.connect(g.timeNode()->outTimePlug(), Tplug(chain[0], &vs->input));
    for (int i = 1; i < n; ++i) g.connect(Tplug(chain[i - 1], &vs->output), Tplug(chain[i], &vs->input));
    double frame = 1;
    double out = 0;
    for (auto _ : state) {
        g.setTime(TanimTime(frame, kCurrentFrameUnit), false);
        chain.back()->getAttributeValue(&vs->output, out);
        benchmark::DoNotOptimize(out);
        frame += 1;
    }
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_TimeChangeAndPullThroughChain)->Arg(10000)->Unit(benchmark::kMicrosecond);

void BM_PlainLoopChain(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    double frame = 1;
    for (auto _ : state) {
        double x = frame / 24.0;
        for (int i = 0; i < n; ++i) {
            x = x + 1.0;
            benchmark::DoNotOptimize(x);
        }
        frame += 1;
    }
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_PlainLoopChain)->Arg(10000)->Unit(benchmark::kMicrosecond);

// A node "src" whose output feeds `fan` dependents; `write` changes its input.
// Every sink is pulled clean before each write, so each write dirties all of them.
template <class Write> void runFanOut(benchmark::State& state, Tsession& session, Write write) {
    const int fan = static_cast<int>(state.range(0));
    TdependGraph& g = session.graph();
    auto* vs = TbenchStep::sVsData();
    TdependNode* src = g.createNode("benchStep", "src");
    std::vector<TdependNode*> sinks;
    for (int i = 0; i < fan; ++i) {
        sinks.push_back(g.createNode("benchStep"));
        g.connect(Tplug(src, &vs->output), Tplug(sinks.back(), &vs->input));
    }
    double value = 0;
    for (auto _ : state) {
        state.PauseTiming();
        double out;
        for (TdependNode* s : sinks) s->getAttributeValue(&vs->output, out);
        state.ResumeTiming();
        write(Tplug(src, &vs->input), value);
        value += 1;
    }
    state.SetItemsProcessed(state.iterations() * fan);
}

// setAttr through the command layer.
void BM_SetAttrDirtyingDependents(benchmark::State& state) {
    Tsession session;
    session.engine().undoManager().setState(false);
    runFanOut(state, session, [&](const Tplug&, double v) {
        session.engine().run("setAttr", {"src.input", std::to_string(v)});
    });
}
BENCHMARK(BM_SetAttrDirtyingDependents)->Arg(1000)->Unit(benchmark::kMicrosecond);

// The same write straight into the graph, without the command layer's parsing.
void BM_PlugWriteDirtyingDependents(benchmark::State& state) {
    Tsession session;
    runFanOut(state, session, [](const Tplug& p, double v) { writePlugNumber(p, v); });
}
BENCHMARK(BM_PlugWriteDirtyingDependents)->Arg(1000)->Unit(benchmark::kMicrosecond);

// Plain loop: setting a flag on each of `fan` records.
void BM_PlainLoopDirtyFlags(benchmark::State& state) {
    const int fan = static_cast<int>(state.range(0));
    std::vector<unsigned char> dirty(fan * 2, 0);
    for (auto _ : state) {
        for (int i = 0; i < fan * 2; ++i) dirty[i] = 1;
        benchmark::DoNotOptimize(dirty.data());
        benchmark::ClobberMemory();
        std::fill(dirty.begin(), dirty.end(), 0);
    }
    state.SetItemsProcessed(state.iterations() * fan);
}
BENCHMARK(BM_PlainLoopDirtyFlags)->Arg(1000)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
