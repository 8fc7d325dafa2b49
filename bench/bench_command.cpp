// Cost of running a command from a script: parsing against a syntax, the
// engine's bookkeeping, and the undo queue, each beside the plainest code that
// does the same work with the values already in hand.

#include "Host/Command/TargDatabase.h"
#include "Host/Command/TcommandEngine.h"

#include <benchmark/benchmark.h>

#include <sstream>

namespace {

double gSink = 0.0;

Tsyntax emitSyntax() {
    Tsyntax s;
    s.addFlag("o", "object", {TargType::String});
    s.addFlag("pos", "position", {TargType::Double, TargType::Double, TargType::Double});
    s.makeFlagMultiUse("pos");
    s.addFlag("at", "attribute", {TargType::String});
    s.addFlag("fv", "floatValue", {TargType::Double});
    s.makeFlagMultiUse("fv");
    return s;
}

// emit -o particle1 -pos x y z -at mass -fv m, as a script hands it over.
TargList emitArgs() {
    TargList args("emit", {});
    args.addFlag("o").add(TscriptValue("particle1"));
    args.addFlag("pos").add(TscriptValue(1.0)).add(TscriptValue(2.0)).add(TscriptValue(3.0));
    args.addFlag("at").add(TscriptValue("mass"));
    args.addFlag("fv").add(TscriptValue(0.5));
    return args;
}

class TemitLikeAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override {
        TargDatabase db(syntax, args);
        gSink += db.flagArgumentDouble("pos", 0, 0) + db.flagArgumentDouble("pos", 0, 1) +
                 db.flagArgumentDouble("pos", 0, 2) + db.flagArgumentDouble("fv");
        TcommandEngine::current().setResult(1);
        return 0;
    }
    Tsyntax syntax = emitSyntax();
};

class TsetCmd : public TcommandObject {
public:
    int doIt(const TargList& args) override {
        fNew = args[0].value.asFloat();
        setOkayForUndo(true);
        return redoIt();
    }
    int redoIt() override {
        fOld = gSink;
        gSink = fNew;
        return 0;
    }
    int undoIt() override {
        gSink = fOld;
        return 0;
    }

private:
    double fOld = 0.0, fNew = 0.0;
};

void BM_ParseFlags(benchmark::State& state) {
    const Tsyntax syntax = emitSyntax();
    const TargList args = emitArgs();
    for (auto _ : state) {
        TargDatabase db(syntax, args);
        benchmark::DoNotOptimize(db.flagArgumentDouble("fv"));
    }
}
BENCHMARK(BM_ParseFlags);

// The same values taken straight from the argument list.
void BM_ParseFlags_Plain(benchmark::State& state) {
    const TargList args = emitArgs();
    for (auto _ : state) {
        double sum = args[3].value.asFloat() + args[4].value.asFloat() + args[5].value.asFloat() +
                     args[9].value.asFloat();
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(BM_ParseFlags_Plain);

void BM_RunAction(benchmark::State& state) {
    TcommandEngine engine;
    engine.registerCommand<TemitLikeAction>("emit");
    const TargList args = emitArgs();
    const TsourceLocation where{"scene.ms", 1};
    for (auto _ : state)
        benchmark::DoNotOptimize(engine.runCommand("emit", args.args(), where));
}
BENCHMARK(BM_RunAction);

void BM_RunAction_Plain(benchmark::State& state) {
    for (auto _ : state) {
        gSink += 1.0 + 2.0 + 3.0 + 0.5;
        benchmark::DoNotOptimize(gSink);
    }
}
BENCHMARK(BM_RunAction_Plain);

// An undoable command stored, then the whole queue undone and redone.
void BM_UndoQueue(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    TcommandEngine engine;
    engine.registerCommand<TsetCmd>("set");
    std::vector<TargList> calls;
    for (std::size_t i = 0; i < count; ++i)
        calls.push_back(TargList("set", {}).add(TscriptValue(double(i))));
    for (auto _ : state) {
        for (const TargList& call : calls)
            engine.runCommand("set", call.args(), {});
        while (engine.undoManager().undo()) {
        }
        while (engine.undoManager().redo()) {
        }
        engine.undoManager().flush();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
}
BENCHMARK(BM_UndoQueue)->Arg(1000);

// Old and new values kept in a plain array, set, restored, set again.
void BM_UndoQueue_Plain(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    std::vector<double> old(count);
    for (auto _ : state) {
        for (std::size_t i = 0; i < count; ++i) {
            old[i] = gSink;
            gSink = double(i);
        }
        for (std::size_t i = count; i-- > 0;)
            gSink = old[i];
        for (std::size_t i = 0; i < count; ++i)
            gSink = double(i);
        benchmark::DoNotOptimize(gSink);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
}
BENCHMARK(BM_UndoQueue_Plain)->Arg(1000);

} // namespace
BENCHMARK_MAIN();
