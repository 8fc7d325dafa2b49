#pragma once
// Runs texts against a FakeScriptHost and keeps what they did.

#include "FakeScriptHost.h"
#include "Host/Script/TscriptInterpreter.h"

#include <gtest/gtest.h>

class ScriptTest : public ::testing::Test {
protected:
    FakeScriptHost host;
    TscriptInterpreter interp{host};

    // Runs `text` and gives what it printed; the run must succeed.
    std::string printed(const std::string& text) {
        host.out.clear();
        bool ok = interp.run(text, "test.tsc", false);
        EXPECT_TRUE(ok) << "errors: " << (host.errors.empty() ? "" : host.errors.back());
        return host.out;
    }
    // Runs `text`, which must fail, and gives its one error "FILE:LINE: TEXT".
    std::string failure(const std::string& text) {
        host.errors.clear();
        bool ok = interp.run(text, "test.tsc", false);
        EXPECT_FALSE(ok) << text;
        EXPECT_EQ(host.errors.size(), 1u) << text;
        return host.errors.empty() ? std::string() : host.errors.back();
    }
    TscriptValue global(const std::string& name) {
        TscriptValue v;
        EXPECT_TRUE(interp.getGlobal(name, v)) << name;
        return v;
    }
};
