#include "rinex/Rnxobs.h"

#include "base/Signals.h"
#include "check.h"
#include "process.h"

#include <csignal>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>

namespace {

constexpr int kDay = 60314; // 5 January 2024

/// A station and what it observes of four satellites.
struct Station : check::Scratch {
    Station() {
        folder.path = path.substr(0, path.size() - 1);
        session.satelliteNames = {"G05", "E11", "J02", "C01"};
        session.frequencies = {{{"L1", "L2", "L5"}, {}, {"L1", "L7"}, {"L2"}, {}, {}, {"L1"}, {}}};
        put(0, 0, "1C", 110000000.1234, 21000000.5678, 45.25, -1234.5674);
        put(0, 1, "2W", 90000000.5, 21000003.25, 40.0, -961.9);
        put(0, 3, "1L", 7.0, 7.0, 7.0, 7.0);                  // beyond the configured carriers
        put(1, 0, "1X", 130000000.0, 24000000.0, 50.0, -0.0); // no Doppler, reversed
        put(1, 1, "7Q", 99000000.0, 24000001.0, 50.0, 1.0);   // deliberate: no such column
        put(2, 0, "1C", 170000000.0, 33000000.0, 50.0, 1.0);
        put(3, 0, "2I", 0.0, 37000000.0, 50.0, 1.0); // without phase: not observed
    }
    void put(std::size_t satellite, std::size_t slot, const std::string& code, double phase,
             double range, double cn0, double doppler) {
        obs.slot(satellite, slot) = {
            phase, range, cn0, static_cast<float>(doppler), obs2code(code), obs2code(code)};
    }
    int write(RinexWriter writer, double sod) {
        writer.obs = &obs;
        writer.session = &session;
        writer.folder = &folder;
        testing::internal::CaptureStdout();
        const int result = Rnxobs_v_outFileObs(writer, kDay, sod);
        printed = testing::internal::GetCapturedStdout();
        return result;
    }
    std::string file(const std::string& name) const { return readFile(path + name); }

    Session session;
    OutputFolder folder;
    EpochObs obs;
    std::string printed;
};

/// Writes a record in a process of its own that gets SIGTERM at its n-th stop, before and after
/// each system call; its wait status. Files of the process end at 300 bytes.
int writeAndEnd(Station& s, int stop) {
    const pid_t child = fork();
    if (child == 0) {
        close(STDOUT_FILENO);
        const rlimit limit{300, 300};
        setrlimit(RLIMIT_FSIZE, &limit);
        std::signal(SIGXFSZ, SIG_IGN);
        endOnSignals();
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
            _exit(77);
        raise(SIGSTOP);
        RinexWriter writer{
            .fileName = s.path + "cut", .obs = &s.obs, .session = &s.session, .folder = &s.folder};
        _exit(Rnxobs_m_outputObs_v3x(kDay, writer, 0.0));
    }
    int status = 0;
    for (waitpid(child, &status, 0); WIFSTOPPED(status); waitpid(child, &status, 0)) {
        if (stop-- == 0)
            kill(child, SIGTERM);
        ptrace(PTRACE_SYSCALL, child, nullptr, WSTOPSIG(status) == SIGTERM ? SIGTERM : 0);
    }
    return status;
}

} // namespace

TEST(ObservationFile, HoldsRecordsInTheirColumns) {
    Station s;
    const auto blanks = [](int n) {
        std::string out;
        while (n-- > 0)
            out += "         0.000  ";
        return out + " \n";
    };
    const std::string record =
        "> 2024  1  5  8 20 30.0000000  0  3\n"
        "G05  21000000.568   110000000.123       -1234.567          45.250  "
        "  21000003.250    90000000.500        -961.900          40.000  " +
        blanks(4) + "E11  24000000.000   130000000.000           0.000          50.000  " +
        blanks(12) + "J02 \n";
    EXPECT_EQ(s.write({.station = "ABCD"}, 30030.0), 0);
    EXPECT_EQ(s.printed, "outfile: " + s.path + "abcd0050.24o\n");
    EXPECT_EQ(s.file("abcd0050.24o"), record);
    s.obs.clear(); // nothing observed: nothing is added
    EXPECT_EQ(s.write({.station = "ABCD"}, 30031.0), 0);
    EXPECT_EQ(s.file("abcd0050.24o"), record);
}

TEST(ObservationFile, SaysWhyARecordIsNotWritten) {
    Station s;
    EXPECT_EQ(s.write({.station = "ABCE"}, 0.0), 0); // the folder can be used
    std::filesystem::create_symlink("elsewhere", s.path + "abcd0050.24o");
    const std::string path = s.folder.path;
    for (const auto& [folder, reason] : {std::pair{path, "Too many levels of symbolic links"},
                                         std::pair{path + "/none", "No such file or directory"}}) {
        s.folder.path = folder;
        EXPECT_EQ(s.write({.station = "ABCD"}, 0.0), -1);
        EXPECT_TRUE(s.printed.ends_with("***WARN(Rnxobs): file = " + folder +
                                        "/abcd0050.24o,epoch is not written," + reason + "\n"))
            << s.printed;
    }
    EXPECT_FALSE(std::filesystem::exists(s.path + "elsewhere"));
    s.folder = {s.path + "none"};
    RinexWriter writer{.station = "ABC",
                       .obs = &s.obs,
                       .session = &s.session,
                       .folder = &s.folder}; // right-aligned in four characters
    check::expectFatal([&] { Rnxobs_v_outFileObs(writer, kDay, 0.0); },
                       "outfile: " + s.path + "none/ abc0050.24o\n****ERROR(Rnxobs): file = " +
                           s.path + "none/ abc0050.24o,can't access out file\n");
}

TEST(ObservationFile, IsNotWrittenForOlderVersions) {
    Station s;
    EXPECT_EQ(s.write({.mjd = kDay}, 0.0), -1); // taken for opened, still at version 2.11
    EXPECT_EQ(s.printed, " don't support Rinex v2 !");
}

TEST(ObservationFile, IsAsItWasWhereverASignalEndsACutRecord) {
    Station s;
    s.Scratch::write("cut", "whole\n");
    int ended = 0; // before open, fstat, hold, write, ftruncate, let go and behind them
    for (int status = SIGTERM; WIFSIGNALED(status); ++ended) {
        status = writeAndEnd(s, ended + 1);
        if (WIFEXITED(status) && WEXITSTATUS(status) == 77)
            GTEST_SKIP() << "no process may be traced here; under an emulator never";
        EXPECT_EQ(s.file("cut"), "whole\n") << "stop " << ended;
    }
    EXPECT_GT(ended, 12);
}
