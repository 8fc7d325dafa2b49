#pragma once
// An engine with captured output, made current for the length of a test.

#include "Host/Command/TcommandEngine.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

class HostCommandFixture : public ::testing::Test {
protected:
    void SetUp() override {
        engine.setOutputStream(&out);
        engine.setErrorStream(&err);
        TcommandEngine::setCurrent(&engine);
    }
    void TearDown() override { TcommandEngine::setCurrent(nullptr); }

    // Runs "name words..." as a script line at scene.ms:LINE would.
    TscriptValue run(const std::string& name, std::initializer_list<std::string> words, int line = 1) {
        return engine.runCommand(name, TargList::fromWords(name, words).args(),
                                 TsourceLocation{"scene.ms", line});
    }
    // The message of the error a call fails with; empty when it succeeds.
    std::string failure(const std::string& name, std::initializer_list<std::string> words) {
        try {
            run(name, words);
        } catch (const TscriptError& e) {
            return e.what();
        }
        return {};
    }

    TcommandEngine engine;
    std::ostringstream out;
    std::ostringstream err;
};
