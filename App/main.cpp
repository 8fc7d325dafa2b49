// The motilane program: runs scene scripts, or the built-in demo.

#include "Tdemo.h"
#include "Tprogress.h"

#include "Global/Basket/TdynamicsBasket.h"
#include "Host/Command/TworkspaceRoot.h"
#include "Host/Session/TsceneFiles.h"
#include "Host/Session/Tsession.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

namespace {

constexpr const char* kUsage = R"(usage:
  motilane [--echo] [--project DIR] [-q] [--open SCENE] [SCRIPT [ARG...]] [-c TEXT]
  motilane demo [--out DIR] [--frames N] [-q]
  motilane --help | --version

  SCRIPT          a scene script to run; its ARGs are in $argv
  -c TEXT         script text to run (after SCRIPT, if both are given);
                  each top-level command's result is echoed
  --echo          echo top-level results of SCRIPT as well
  --project DIR   the workspace root (particle files go to DIR/particles)
  --open SCENE    open a saved scene (file -save) before SCRIPT and -c run
  -q              no progress lines
  demo            run the built-in scene, writing to --out (default demo-out)
exit status: 0 success, 1 script error, 2 bad usage
)";

int usageError(const std::string& text) {
    std::cerr << "motilane: " << text << "\n" << kUsage;
    return 2;
}

void onInterrupt(int) {
    Tsession::interruptFlag() = true;
}

int runDemoCommand(int argc, char** argv) {
    TdemoOptions options;
    for (int i = 2; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--out" && i + 1 < argc)
            options.outDir = argv[++i];
        else if (a == "--frames" && i + 1 < argc) {
            std::string n = argv[++i];
            char* end = nullptr;
            long v = std::strtol(n.c_str(), &end, 10);
            if (n.empty() || *end || v < 1 || v > 100000)
                return usageError("--frames takes a whole number from 1 to 100000");
            options.frames = static_cast<int>(v);
        } else if (a == "-q")
            options.quiet = true;
        else
            return usageError("unknown demo option '" + a + "'");
    }
    return runDemo(options);
}

} // namespace

// Output that could not be written (a full disk, a closed pipe, /dev/full) is a failed run.
bool outputWritten() {
    errno = 0;
    std::cout.flush();
    if (std::cout.good() && std::fflush(stdout) == 0 && !std::ferror(stdout)) return true;
    const int why = errno;
    std::fprintf(stderr, "// Error: cannot write the output: %s //\n",
                 why ? std::strerror(why) : "the stream broke");
    return false;
}

bool openSceneFile(Tsession& session, const std::string& path) {
    try {
        openScene(session, path);
        return true;
    } catch (const TscriptError& e) {
        if (!e.reported()) session.engine().error(e.where(), e.what());
    } catch (const std::exception& e) {
        session.engine().displayError(std::string("--open: ") + e.what());
    }
    return false;
}

int main(int argc, char** argv) {
    std::signal(SIGINT, onInterrupt);
    // A job scheduler's stop is a Ctrl-C: the file in hand is finished, then the run stops cleanly.
    std::signal(SIGTERM, onInterrupt);
    if (argc >= 2 && std::strcmp(argv[1], "demo") == 0) {
        TdynamicsBasket::initialize();
        const int status = runDemoCommand(argc, argv);
        return outputWritten() ? status : 1;
    }

    bool echo = false;
    bool quiet = false;
    std::string script, text, project, scene;
    bool haveText = false;
    std::vector<std::string> scriptArgs;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "-c") {
            if (i + 1 >= argc) return usageError("-c needs the text to run");
            text = argv[++i];
            haveText = true;
        } else if (!script.empty()) {
            scriptArgs.push_back(a);
        } else if (a == "--help" || a == "-h") {
            std::cout << kUsage;
            return 0;
        } else if (a == "--version") {
            std::cout << "motilane 0.1.0\n";
            return 0;
        } else if (a == "--echo") {
            echo = true;
        } else if (a == "-q") {
            quiet = true;
        } else if (a == "--open") {
            if (i + 1 >= argc) return usageError("--open needs a scene file");
            scene = argv[++i];
        } else if (a == "--project") {
            if (i + 1 >= argc) return usageError("--project needs a directory");
            project = argv[++i];
        } else if (!a.empty() && a[0] == '-') {
            return usageError("unknown option '" + a + "'");
        } else {
            script = a;
        }
    }
    if (script.empty() && !haveText && scene.empty())
        return usageError("give a SCRIPT, -c TEXT or --open SCENE");

    TdynamicsBasket::initialize();
    Tsession session;
    installProgressHandler(session.engine(), quiet);
    if (!project.empty()) TworkspaceRoot::set(std::filesystem::absolute(project).string());
    std::vector<std::string> argvValue(scriptArgs.begin(), scriptArgs.end());
    session.interpreter().setGlobal("argv", TscriptValue(argvValue));
    int status = 0;
    if (!scene.empty() && !openSceneFile(session, scene))
        status = 1;
    else if (!script.empty() && !session.runFile(script, echo))
        status = 1;
    else if (haveText && !session.runText(text, "-c", true))
        status = 1;
    return outputWritten() ? status : 1;
}
