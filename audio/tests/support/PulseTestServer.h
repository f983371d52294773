#pragma once

// A private PulseAudio server with a null sink: a real, clocked sound device for
// tests on machines without a sound card (CI), and a monitor to record what was
// played. The server lives in a temporary folder of its own (runtime directory,
// home, socket, log), never touches the user's sound setup, and is killed when the
// test program ends.
//
// Use:
//     auto* server = PulseTestServer::shared();
//     if (!server->usable()) GTEST_SKIP() << server->whyUnusable();
//
// shared() points this process's PortAudio at the server (PULSE_SERVER, a client
// configuration that never starts a server of its own, and an ALSA configuration
// whose default device is the server), so call it before anything opens a device.
// Should the test program die without stopping it, the server and any recorder go
// with it.

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace fq::audio::testing {

class PulseTestServer {
public:
    static constexpr const char* sinkName = "fq_test";
    static constexpr const char* monitorName = "fq_test.monitor";
    static constexpr int sampleRate = 44100;

    /// The process's server, started on first use (and again if it has ended) and
    /// stopped at exit.
    static PulseTestServer* shared() {
        static PulseTestServer* server = [] {
            auto* created = new PulseTestServer;
            ::testing::AddGlobalTestEnvironment(new Stopper(created));
            return created;
        }();
        if (server->why_.empty() && !server->isAlive()) server->start();
        return server;
    }

    bool isAlive() {
        if (pid_ <= 0) return false;
        if (waitpid(pid_, nullptr, WNOHANG) == pid_) pid_ = -1;
        return pid_ > 0;
    }

    ~PulseTestServer() {
        stop();
        std::error_code ignored;
        if (!directory_.empty()) std::filesystem::remove_all(directory_, ignored);
    }

    bool usable() const { return why_.empty() && pid_ > 0; }
    const std::string& whyUnusable() const { return why_; }
    const std::filesystem::path& directory() const { return directory_; }
    std::string address() const { return "unix:" + (directory_ / "native").string(); }

    /// Starts the server (again) and waits until it answers.
    bool start() {
        if (pid_ > 0) return true;
        if (directory_.empty() && !makeDirectory()) return false;
        const auto binary = findProgram("pulseaudio");
        if (binary.empty())
            return fail("pulseaudio is not installed (scripts/bootstrap installs it)");
        std::vector<std::string> arguments{binary.string(),
                                           "-n",
                                           "--daemonize=no",
                                           "--exit-idle-time=-1",
                                           "--use-pid-file=no",
                                           "--system=no",
                                           "--realtime=no",
                                           "--high-priority=no",
                                           "--no-cpu-limit=yes",
                                           "--disallow-module-loading=no",
                                           "--log-target=file:" +
                                               (directory_ / "server.log").string(),
                                           "--log-level=info",
                                           "-L",
                                           "module-native-protocol-unix auth-anonymous=1 socket=" +
                                               (directory_ / "native").string(),
                                           "-L",
                                           std::string("module-null-sink sink_name=") + sinkName +
                                               " rate=44100 channels=2 format=float32le"};
        pid_ = spawn(arguments, serverEnvironment(), "/dev/null");
        if (pid_ <= 0) return fail("cannot start pulseaudio");
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
        while (std::chrono::steady_clock::now() < deadline) {
            int status = 0;
            if (waitpid(pid_, &status, WNOHANG) == pid_) {
                pid_ = -1;
                return fail("pulseaudio cannot run on this machine: " + lastLogLine());
            }
            if (runClient({"pactl", "info"}) == 0) {
                runClient({"pactl", "set-default-sink", sinkName});
                runClient({"pactl", "set-default-source", monitorName});
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        stop();
        // a server that starts but never answers is a fault, not a missing feature
        ADD_FAILURE() << "pulseaudio started but did not answer: " << lastLogLine();
        return fail("pulseaudio did not answer");
    }

    /// Ends the server; with `crash`, abruptly (SIGKILL), as a failing device would.
    void stop(bool crash = false) {
        if (pid_ <= 0) return;
        kill(pid_, crash ? SIGKILL : SIGTERM);
        for (int i = 0; i < 100; ++i) {
            if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
                pid_ = -1;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }

    /// Runs a PulseAudio client (pactl, parec) against this server; its exit status.
    int runClient(const std::vector<std::string>& arguments,
                  const std::string& output = "/dev/null") const {
        std::vector<std::string> argv = arguments;
        argv[0] = findProgram(argv[0]).string();
        const pid_t pid = spawn(argv, clientEnvironment(), output);
        if (pid <= 0) return -1;
        int status = 0;
        while (waitpid(pid, &status, 0) < 0)
            if (errno != EINTR) return -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    /// Records the sink's monitor (one channel, float, 44100 Hz) until stopped.
    class Recording {
    public:
        Recording(const PulseTestServer& server, std::filesystem::path file)
            : file_(std::move(file)) {
            std::vector<std::string> argv{findProgram("parec").string(),
                                          std::string("--device=") + monitorName,
                                          "--format=float32le",
                                          "--rate=44100",
                                          "--channels=1",
                                          "--raw",
                                          "--latency-msec=20"};
            pid_ = spawn(argv, server.clientEnvironment(), file_.string());
        }
        ~Recording() { (void)stop(); }

        /// True once audio flows into the file (the monitor sends silence continually).
        bool waitUntilRecording() const {
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
            while (std::chrono::steady_clock::now() < deadline) {
                std::error_code error;
                if (std::filesystem::file_size(file_, error) > 4096 && !error) return true;
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
            return false;
        }

        std::vector<float> stop() {
            if (pid_ > 0) {
                kill(pid_, SIGINT);
                waitpid(pid_, nullptr, 0);
                pid_ = -1;
            }
            std::ifstream in(file_, std::ios::binary);
            std::vector<float> samples;
            float sample = 0;
            while (in.read(reinterpret_cast<char*>(&sample), sizeof sample))
                samples.push_back(sample);
            return samples;
        }

    private:
        std::filesystem::path file_;
        pid_t pid_ = -1;
    };

private:
    struct Stopper : ::testing::Environment {
        explicit Stopper(PulseTestServer* server) : server_(server) {}
        void TearDown() override { delete server_; }
        PulseTestServer* server_;
    };

    PulseTestServer() = default;

    bool fail(std::string why) {
        why_ = std::move(why);
        return false;
    }

    bool makeDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "fq-pulse-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) return fail("cannot make a temporary folder");
        directory_ = pattern;
        std::filesystem::create_directories(directory_ / "home");
        std::filesystem::create_directories(directory_ / "runtime");
        chmod((directory_ / "runtime").c_str(), 0700);
        // clients never start a server of their own, whatever happens to this one
        std::ofstream(directory_ / "client.conf") << "autospawn = no\n";
        // ALSA's default device is this server, whether or not the system's
        // configuration has the pulse hook
        std::ofstream(directory_ / "home" / ".asoundrc")
            << "pcm.!default { type pulse }\nctl.!default { type pulse }\n";
        // ALSA loads its plugins while PortAudio looks for devices and unloads them
        // whenever PortAudio ends; some libraries they pull in (FFmpeg's, for the
        // rate and surround plugins) keep what their initialisers allocate, which the
        // leak checker then reports. Loaded for good, that memory stays reachable.
        for (const char* folder :
             {"/usr/lib/x86_64-linux-gnu/alsa-lib", "/usr/lib/aarch64-linux-gnu/alsa-lib",
              "/usr/lib/alsa-lib", "/usr/lib64/alsa-lib"}) {
            std::error_code error;
            for (const auto& entry : std::filesystem::directory_iterator(folder, error))
                if (entry.path().filename().string().rfind("libasound_module_", 0) == 0)
                    (void)dlopen(entry.path().c_str(), RTLD_NOW | RTLD_NODELETE);
        }
        // this process: PortAudio reaches the server through ALSA's pulse plugin
        setenv("PULSE_SERVER", address().c_str(), 1);
        setenv("PULSE_CLIENTCONFIG", (directory_ / "client.conf").c_str(), 1);
        setenv("HOME", (directory_ / "home").c_str(), 1);
        unsetenv("FRETQUILL_AUDIO_DEVICE");
        return true;
    }

    std::vector<std::string> serverEnvironment() const {
        auto environment =
            inherited({"HOME", "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME", "PULSE_SERVER"});
        environment.push_back("HOME=" + (directory_ / "home").string());
        environment.push_back("XDG_RUNTIME_DIR=" + (directory_ / "runtime").string());
        environment.push_back("XDG_CONFIG_HOME=" + (directory_ / "home" / ".config").string());
        return environment;
    }

    std::vector<std::string> clientEnvironment() const {
        auto environment = inherited({"PULSE_SERVER", "PULSE_CLIENTCONFIG"});
        environment.push_back("PULSE_SERVER=" + address());
        environment.push_back("PULSE_CLIENTCONFIG=" + (directory_ / "client.conf").string());
        return environment;
    }

    static std::vector<std::string> inherited(const std::vector<std::string>& without) {
        std::vector<std::string> environment;
        for (char** entry = environ; *entry != nullptr; ++entry) {
            const std::string text = *entry;
            const auto name = text.substr(0, text.find('='));
            if (std::find(without.begin(), without.end(), name) == without.end())
                environment.push_back(text);
        }
        return environment;
    }

    static std::filesystem::path findProgram(const std::string& name) {
        const char* path = std::getenv("PATH");
        std::stringstream folders(path != nullptr ? path : "/usr/bin:/bin");
        for (std::string folder; std::getline(folders, folder, ':');) {
            const auto candidate = std::filesystem::path(folder) / name;
            if (access(candidate.c_str(), X_OK) == 0) return candidate;
        }
        for (const char* folder : {"/usr/bin", "/bin", "/usr/local/bin"}) {
            const auto candidate = std::filesystem::path(folder) / name;
            if (access(candidate.c_str(), X_OK) == 0) return candidate;
        }
        return {};
    }

    /// Starts a program with its output in `output`; its process id, or -1. The
    /// program is killed when the thread that started it ends, so that a test program
    /// that dies leaves no server or recorder behind.
    static pid_t spawn(const std::vector<std::string>& arguments,
                       const std::vector<std::string>& environment, const std::string& output) {
        if (arguments.empty() || arguments[0].empty()) return -1;
        std::vector<char*> argv;
        for (const auto& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        std::vector<char*> envp;
        for (const auto& entry : environment)
            envp.push_back(const_cast<char*>(entry.c_str()));
        envp.push_back(nullptr);
        const pid_t parent = getpid();
        const pid_t pid = fork();
        if (pid != 0) return pid; // the parent, or -1
        // the child: only calls that are safe after fork in a threaded program
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(127);
        const int in = open("/dev/null", O_RDONLY);
        const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int err = open("/dev/null", O_WRONLY);
        if (in < 0 || out < 0 || err < 0) _exit(127);
        dup2(in, STDIN_FILENO);
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }

    std::string lastLogLine() const {
        std::ifstream in(directory_ / "server.log");
        std::string line, last;
        while (std::getline(in, line))
            if (line.rfind("E: ", 0) == 0 || last.empty()) last = line;
        return last.empty() ? "no log" : last;
    }

    std::filesystem::path directory_;
    pid_t pid_ = -1;
    std::string why_;
};

} // namespace fq::audio::testing
