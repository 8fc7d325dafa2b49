// currentTime, playbackOptions, currentUnit, setKeyframe.

#include "Host/Dag/TanimCurveNode.h"
#include "Host/Graph/TdnTime.h"
#include "Host/SceneCommands/TsceneCommand.h"
#include "Host/Time/TanimInfo.h"

#include <memory>

namespace {

class TcurrentTimeCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.enableQuery();
        s.addFlag("u", "update", {TargType::Bool});
        s.setObjectKind(Tsyntax::ObjectKind::None);
        s.setValueArguments(0, 1);
    }
    int run(const TargDatabase& db) override {
        if (db.isQuery()) {
            engine().setResult(graph().time().valueInThisUnit(kCurrentFrameUnit));
            return 0;
        }
        if (db.valueCount() != 1) fail("give the time to go to, in frames");
        bool update = true;
        db.getFlagArgument("update", 0, update);
        double frame = db.valueDouble(0);
        graph().setTime(TanimTime::checked(frame, kCurrentFrameUnit, "the frame"), update);
        engine().setResult(frame);
        return 0;
    }
};

class TplaybackOptionsCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.enableQuery();
        s.addFlag("min", "minTime", {TargType::Double});
        s.addFlag("max", "maxTime", {TargType::Double});
    }
    int run(const TargDatabase& db) override {
        TanimInfo& info = TanimInfo::currAnimInfo();
        if (db.isQuery()) {
            if (db.isFlagSet("minTime"))
                engine().setResult(info.startTime().valueInThisUnit(kCurrentFrameUnit));
            else if (db.isFlagSet("maxTime"))
                engine().setResult(info.endTime().valueInThisUnit(kCurrentFrameUnit));
            else
                fail("query -minTime or -maxTime");
            return 0;
        }
        TanimTime start = info.startTime(), end = info.endTime();
        double v;
        if (db.getFlagArgument("minTime", 0, v)) start = TanimTime::checked(v, kCurrentFrameUnit, "-minTime");
        if (db.getFlagArgument("maxTime", 0, v)) end = TanimTime::checked(v, kCurrentFrameUnit, "-maxTime");
        if (end < start) fail("the end of the range comes before its start");
        TanimTime oldStart = info.startTime(), oldEnd = info.endTime();
        perform([start, end] { TanimInfo::currAnimInfo().setRange(start, end); },
                [oldStart, oldEnd] { TanimInfo::currAnimInfo().setRange(oldStart, oldEnd); });
        return 0;
    }
};

class TcurrentUnitCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.enableQuery();
        s.addFlag("t", "time", {TargType::String});
    }
    int run(const TargDatabase& db) override {
        if (db.isQuery()) {
            engine().setResult(std::string(TtimeUnit::name(TtimeUnit::current())));
            return 0;
        }
        std::string name;
        if (!db.getFlagArgument("time", 0, name))
            fail("give the unit with -time (film, pal, ntsc, game, show, palf, ntscf)");
        TtimeUnitSystem unit = TtimeUnit::fromName(name.c_str());
        if (unit == kInvalidTimeUnit || unit == kSeconds || unit == kHours || unit == kMinutes ||
            unit == kMilliseconds)
            fail("unknown time unit '" + name + "' (film, pal, ntsc, game, show, palf, ntscf)");
        TtimeUnitSystem old = TtimeUnit::current();
        // People count in frames: the playback range and the current frame keep their numbers.
        auto change = [this](TtimeUnitSystem from, TtimeUnitSystem to) {
            TanimInfo& info = TanimInfo::currAnimInfo();
            const double start = info.startTime().valueInThisUnit(from);
            const double end = info.endTime().valueInThisUnit(from);
            const double now = graph().time().valueInThisUnit(from);
            TtimeUnit::setCurrent(to);
            info.setRange(TanimTime(start, to), TanimTime(end, to));
            if (TanimTime(now, to) != graph().time()) graph().setTime(TanimTime(now, to), false);
        };
        perform([change, old, unit] { change(old, unit); }, [change, old, unit] { change(unit, old); });
        return 0;
    }
};

TtangentType tangentFromName(const std::string& n, bool& ok) {
    ok = true;
    if (n == "linear") return TtangentType::kLinear;
    if (n == "step" || n == "stepped") return TtangentType::kStepped;
    if (n == "smooth" || n == "spline" || n == "auto") return TtangentType::kSmooth;
    ok = false;
    return TtangentType::kSmooth;
}

class TsetKeyframeCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.addFlag("t", "time", {TargType::Time});
        s.addFlag("v", "value", {TargType::Double});
        s.addFlag("at", "attribute", {TargType::String});
        s.makeFlagMultiUse("attribute");
        s.addFlag("itt", "inTangentType", {TargType::String});
        s.addFlag("ott", "outTangentType", {TargType::String});
        s.setObjectKind(Tsyntax::ObjectKind::Strings, 1);
        s.useSelectionAsDefault(true);
    }

    std::vector<Tplug> targets(const TargDatabase& db) {
        std::vector<Tplug> out;
        for (const std::string& name : db.objects()) {
            Tplug p = parsePlug(graph(), name, false);
            if (p.attribute()) {
                out.push_back(p);
                continue;
            }
            if (db.flagUseCount("attribute") > 0) {
                for (std::size_t u = 0; u < db.flagUseCount("attribute"); ++u)
                    out.push_back(parsePlug(graph(), name + "." + db.flagArgumentString("attribute", u)));
                continue;
            }
            // Every keyable number of the node.
            for (unsigned i = 0; i < p.node()->attributeCount(); ++i) {
                Tattribute* a = p.node()->attribute(i);
                if (a && a->isNumeric() && a->hasFlag(Tattribute::kKeyable) && !a->isElementOfArray())
                    out.push_back(Tplug(p.node(), a));
            }
        }
        return out;
    }

    int run(const TargDatabase& db) override {
        bool ok = true;
        std::string name = "smooth";
        db.getFlagArgument("inTangentType", 0, name);
        TtangentType in = tangentFromName(name, ok);
        if (!ok) fail("unknown tangent type '" + name + "' (linear, smooth, step)");
        name = "smooth";
        db.getFlagArgument("outTangentType", 0, name);
        TtangentType out = tangentFromName(name, ok);
        if (!ok) fail("unknown tangent type '" + name + "' (linear, smooth, step)");
        if (!db.isFlagSet("inTangentType")) in = db.isFlagSet("outTangentType") ? out : in;
        if (!db.isFlagSet("outTangentType")) out = in;

        const double time =
            static_cast<double>((db.isFlagSet("time") ? TanimTime::checked(db.flagArgumentTime("time"),
                                                                           kCurrentFrameUnit, "-time")
                                                      : graph().time())
                                    .ticks());
        int keyed = 0;
        for (const Tplug& plug : targets(db)) {
            Tattribute* a = plug.attribute();
            if (!a->isNumeric() || a->type() == TattrType::Time)
                fail(plug.name() + " cannot be keyed: it does not hold a number");
            double value = 0;
            if (!db.getFlagArgument("value", 0, value))
                value = plugValue(plug, TdgContext::fsNormal).asFloat();

            Tplug src = plug.source();
            TanimCurveNode* curveNode = src.isNull() ? nullptr : TanimCurveNode::cast(src.node());
            if (!src.isNull() && !curveNode)
                fail(plug.name() + " is driven by " + src.name() + " and cannot be keyed");
            if (!curveNode) {
                std::string curveName = plug.node()->name() + "_" + a->name();
                curveNode = TanimCurveNode::cast(createNodeUndoable(*this, "animCurve", curveName));
                auto* cvs = TanimCurveNode::sVsData();
                Tplug timePlug = graph().timeNode()->outTimePlug();
                Tplug input(curveNode, &cvs->input);
                Tplug output(curveNode, &cvs->output);
                perform(
                    [this, timePlug, input, output, plug] {
                        graph().connect(timePlug, input, true);
                        graph().connect(output, plug, true);
                    },
                    [this, output, plug] {
                        if (plug.source() == output) graph().disconnect(output, plug);
                    });
            }
            TanimCurve before = curveNode->curve();
            TanimCurve after = before;
            after.setKey(time, value, in, out);
            perform([curveNode, after] { curveNode->setCurve(after); },
                    [curveNode, before] { curveNode->setCurve(before); });
            ++keyed;
        }
        engine().setResult(keyed);
        return 0;
    }
};

MOTILANE_REGISTER_COMMAND("currentTime", TcurrentTimeCmd);
MOTILANE_REGISTER_COMMAND("playbackOptions", TplaybackOptionsCmd);
MOTILANE_REGISTER_COMMAND("currentUnit", TcurrentUnitCmd);
MOTILANE_REGISTER_COMMAND("setKeyframe", TsetKeyframeCmd);

} // namespace
