#include "check.h"
#include "gateway/settings/Passwd.h"
#include "gateway/settings/Users.h"
#include "process.h"

#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <sstream>
#include <sys/stat.h>

// The gateway's users: their file, their passwords, the command that edits it.

namespace gateway {

namespace {

namespace fs = std::filesystem;

// Written by mkpasswd (-m yescrypt, sha512crypt, bcrypt) and htpasswd -nbB -C 10.
constexpr const char* kYescrypt =
    "$y$j9T$D.PyaiWFOqrIJTrfKKuxM.$6O3aiba9vJCo7Z7ZuLWwxF3IMEZ1KShxebUI6S5HFN5"; // hunter2
constexpr const char* kSha512 =
    "$6$.jCI.rejydO/IxnW$yyzrdACUJibolEWLyv8JON5fXyHAakZ9QIsG0qsd8sXOK./"
    "HDvIHNPAtbutI0AdcfEsz67KsvD/FI4QrpzqDD."; // Correct Horse
constexpr const char* kBcryptY =
    "$2y$10$0MjulOGvWwI7k39L30j6j.3KJa3A4sS1OqFdFc/Sy9mgd2QkFVfEa"; // päss:wörd
constexpr const char* kBcryptB =
    "$2b$05$kIFID7A3e/iLda0dmzyVxOCWd7czaOMFiKXA5y7WaMRDzEgoJ5vZe"; // battery

class GatewayUsers : public testing::Test {
protected:
    /// Reads the lines; what is told, one remark a line.
    std::string read(const std::string& lines) {
        std::vector<ctl::check::Remark> remarks;
        users.read(scratch.write("users", lines), remarks);
        std::string told;
        for (const auto& r : remarks)
            told += std::to_string(r.line) + " " + r.text + "\n";
        return told;
    }
    bool matches(const std::string& name, const std::string& password) {
        return users.matches(name, Secret(password));
    }
    check::Scratch scratch;
    Users users;
};

TEST_F(GatewayUsers, AreKnownByTheirPasswords) {
    EXPECT_EQ(read(std::string("# rovers\n\na:") + kYescrypt + "\r\nb:" + kSha512 +
                   "\nc:" + kBcryptY + "\nd:" + kBcryptB),
              "");
    const std::pair<const char*, const char*> right[] = {
        {"a", "hunter2"}, {"b", "Correct Horse"}, {"c", "päss:wörd"}, {"d", "battery"}};
    for (const auto& [name, password] : right) {
        EXPECT_FALSE(matches(name, std::string(password) + "x")) << name;
        EXPECT_FALSE(matches(name, "")) << name;
        EXPECT_FALSE(matches(name, std::string(password) + '\0' + "x")) << name; // text of C ends
        EXPECT_FALSE(matches("e", password)) << name;
        EXPECT_TRUE(matches(name, password)) << name;
        EXPECT_TRUE(matches(name, password)) << name;
        EXPECT_FALSE(matches(name, std::string(password) + "x")) << name;
    }
    EXPECT_FALSE(matches("a", "battery"));
    EXPECT_FALSE(matches("", "hunter2"));
    EXPECT_FALSE(matches("a", std::string(100'000, 'x')));
}

TEST_F(GatewayUsers, LoseAnOldPasswordWhenTheFileIsReadAgain) {
    const std::string before = std::string("a:") + kBcryptB + "\nb:" + kBcryptB + "\nc:" + kBcryptB;
    read(before);
    EXPECT_TRUE(matches("a", "battery") && matches("b", "battery") && matches("c", "battery"));
    EXPECT_EQ(read(std::string("a:") + kBcryptB + "\nb:" + kYescrypt + "\nd:" + kBcryptB), "");
    EXPECT_TRUE(matches("a", "battery"));
    EXPECT_FALSE(matches("b", "battery") || matches("c", "battery"));
    fs::remove(scratch.path + "users");
    std::vector<ctl::check::Remark> remarks;
    users.read(scratch.path + "users", remarks);
    ASSERT_EQ(remarks.size(), 1U);
    EXPECT_EQ(remarks[0].severity, Severity::fatal);
    EXPECT_TRUE(matches("a", "battery")) << "nobody is locked out by a file that is away";
}

TEST_F(GatewayUsers, AreToldWhoseLinesMakeNone) {
    const struct {
        std::string line;
        const char* told;
    } cases[] = {
        {"hunter2", "is no line NAME:HASH"},
        {":" + std::string(kBcryptB), "is no name"},
        {"a b:" + std::string(kBcryptB), "is no name"},
        {"a:", "the hash is missing"},
        {"a:hunter2", "what follows the name is no hash"},
        {"a:$apr1$6kEgn2Tj$hq5tI7m0ikZQ219Bh2hU/1", "is none of yescrypt"},
        {"a:$1$hunter2$hq5tI7m0ikZQ219Bh2hU/1", "is none of yescrypt"},
        {"a:" + std::string(kBcryptB).substr(0, 59), "is not whole"},
        {"a:" + std::string(kYescrypt) + "x", "is not whole"},
        {"a:$6$rounds=999999999$abc$" + std::string(86, 'a'), "takes so long"},
        {"a:$2y$31$" + std::string(53, 'a'), "takes so long"},
        {"good:" + std::string(kBcryptB), "stands a second time"},
        {"a:" + std::string(2000, 'x'), "is no line NAME:HASH"},
    };
    for (const auto& c : cases) {
        const std::string told = read("\ngood:" + std::string(kBcryptB) + "\n" + c.line + "\n");
        EXPECT_EQ(told.substr(0, 2), "3 ") << c.line;
        EXPECT_NE(told.find(c.told), std::string::npos) << c.line << ": " << told;
        EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1) << told;
        EXPECT_EQ(told.find("hunter2"), std::string::npos) << told;
        EXPECT_TRUE(users.contains("good") && !users.contains("a"));
    }
}

// Ratios within one run: whoever guesses cannot tell names from times; the right password, once
// found right, takes no hash.
TEST_F(GatewayUsers, CostAsMuchWhenUnknownAsWithAWrongPassword) {
    read(std::string("a:") + kBcryptY);
    const auto cost = [&](const char* name, const char* password = "wrong") {
        const std::clock_t begin = std::clock();
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(matches(name, password), password != std::string("wrong"));
        return static_cast<double>(std::clock() - begin);
    };
    cost("a");
    const double ratio = cost("nobody") / cost("a");
    EXPECT_GT(ratio, 0.3);
    EXPECT_LT(ratio, 3.0);
    ASSERT_TRUE(matches("a", "päss:wörd"));
    EXPECT_LT(cost("a", "päss:wörd"), 0.3 * cost("a"));
}

TEST(ProvenPasswords, KeepsThoseUsedLast) {
    ProvenPasswords proven(2);
    const auto digest = [&](std::string_view name) {
        return proven.digest({name, "hash", "word"});
    };
    proven.add(digest("a"));
    proven.add(digest("b"));
    EXPECT_TRUE(proven.holds(digest("a")));
    proven.add(digest("c"));
    proven.add(digest("c"));
    EXPECT_TRUE(proven.holds(digest("a")) && proven.holds(digest("c")));
    EXPECT_FALSE(proven.holds(digest("b")));
    EXPECT_EQ(proven.size(), 2U);
    EXPECT_NE(proven.digest({"ab", "c"}), proven.digest({"a", "bc"}));
    EXPECT_NE(proven.digest({"a"}), ProvenPasswords(2).digest({"a"})) << "each process has a key";
}

/// Runs `passwd` with this standard input.
struct PasswdRun {
    int status = -1;
    std::string said;
};
PasswdRun passwd(const fs::path& file, const std::string& name, const std::string& input) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], input.data(), input.size()), static_cast<ssize_t>(input.size()));
    close(ends[1]);
    std::ostringstream out;
    const int status = runPasswd(file, name, ends[0], out);
    close(ends[0]);
    return {status, out.str()};
}
mode_t modeOf(const fs::path& file) {
    struct stat status {};
    EXPECT_EQ(lstat(file.c_str(), &status), 0);
    return status.st_mode & 07777U;
}

TEST_F(GatewayUsers, AreWrittenByPasswd) {
    const fs::path file = scratch.path + "made";
    EXPECT_EQ(passwd(file, "rover", "battery staple\r\nnot this\n").status, 0);
    EXPECT_EQ(modeOf(file), 0600U);
    std::vector<ctl::check::Remark> remarks;
    users.read(file, remarks);
    EXPECT_TRUE(remarks.empty() && matches("rover", "battery staple"));
    EXPECT_TRUE(readFile(file).starts_with("rover:$y$"));

    // The others, comments, and what is no user stay as they are.
    const std::string before = "# rovers\r\n\nrover1:x\nrover:old\nrubbish\nrover:again\nlast:y";
    scratch.write("made", before);
    fs::permissions(file, fs::perms{0644});
    fs::create_symlink(file, scratch.path + "link");
    EXPECT_EQ(passwd(scratch.path + "link", "rover", "new").status, 0);
    EXPECT_TRUE(fs::is_symlink(scratch.path + "link"));
    EXPECT_EQ(modeOf(file), 0640U) << "the group may read as before, others may not";
    const std::string after = readFile(file);
    const std::size_t at = after.find("rover:$y$");
    EXPECT_EQ(after.substr(0, at), "# rovers\r\n\nrover1:x\n");
    EXPECT_EQ(after.substr(after.find('\n', at)), "\nrubbish\nlast:y");
    EXPECT_EQ(passwd(file, "more", "new").status, 0);
    EXPECT_NE(readFile(file).find("\nlast:y\nmore:$y$"), std::string::npos);

    const std::string kept = readFile(file);
    const struct {
        std::string name, input;
        int status;
        const char* said;
    } cases[] = {{"a:b", "x", 2, "a user has a name"},
                 {"rover", "", 1, "is empty"},
                 {"rover", "\nsecond", 1, "is empty"},
                 {"rover", "hunter\t2", 1, "control character"},
                 {"rover", std::string(512, 'x'), 1, "longer than 511"}};
    for (const auto& c : cases) {
        const PasswdRun run = passwd(file, c.name, c.input);
        EXPECT_EQ(run.status, c.status) << c.said;
        EXPECT_NE(run.said.find(c.said), std::string::npos) << run.said;
    }
    EXPECT_EQ(passwd(scratch.path + "none/made", "a", "x").status, 1);
    EXPECT_EQ(readFile(file), kept);
    EXPECT_EQ(std::distance(fs::directory_iterator(scratch.path), {}), 2) << "nothing is left over";
}

/// A terminal with `passwd` at it.
class Terminal {
public:
    Terminal(const std::string& file) {
        master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        EXPECT_TRUE(master_ >= 0 && grantpt(master_) == 0 && unlockpt(master_) == 0);
        const int slave = open(ptsname(master_), O_RDWR | O_NOCTTY);
        EXPECT_GE(slave, 0);
        child_ = fork();
        if (child_ == 0) {
            std::ostringstream none;
            struct ToTerminal : std::stringbuf {
                int fd = -1;
                int sync() override {
                    const std::string text = str();
                    str("");
                    return write(fd, text.data(), text.size()) < 0 ? -1 : 0;
                }
            } buffer;
            buffer.fd = slave;
            std::ostream out(&buffer);
            const int status = runPasswd(file, "rover", slave, out);
            out.flush();
            _exit(status);
        }
        close(slave);
    }
    ~Terminal() { close(master_); }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Types a line once the prompt is there.
    void answer(const std::string& prompt, const std::string& keys) {
        std::size_t from = seen.size();
        char c = 0;
        while (seen.find(prompt, from) == std::string::npos && ::read(master_, &c, 1) == 1)
            seen += c;
        EXPECT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    /// What is shown to the end; the exit status.
    int end() {
        char c = 0;
        while (::read(master_, &c, 1) == 1)
            seen += c;
        int status = 0;
        EXPECT_EQ(waitpid(child_, &status, 0), child_);
        return WEXITSTATUS(status);
    }
    std::string seen;

private:
    int master_ = -1;
    pid_t child_ = -1;
};

TEST_F(GatewayUsers, TypeTheirPasswordTwiceUnseen) {
    const std::string file = scratch.path + "typed";
    {
        Terminal terminal(file);
        terminal.answer("rover: ", "wrong\x15"
                                   "hunterr\x7f"
                                   "2\r");
        terminal.answer("more: ", "hunter2\r");
        EXPECT_EQ(terminal.end(), 0);
        EXPECT_EQ(terminal.seen.find("hunter"), std::string::npos) << terminal.seen;
    }
    std::vector<ctl::check::Remark> remarks;
    users.read(file, remarks);
    EXPECT_TRUE(matches("rover", "hunter2"));
    const std::string kept = readFile(file);
    for (const auto& [second, said] :
         {std::pair("other\r", "differ"), std::pair("\x03", "nothing")}) {
        Terminal terminal(file);
        terminal.answer("rover: ", "new\r");
        terminal.answer("more: ", second);
        EXPECT_EQ(terminal.end(), 1);
        EXPECT_NE(terminal.seen.find(said), std::string::npos) << terminal.seen;
    }
    EXPECT_EQ(readFile(file), kept);
}

} // namespace

} // namespace gateway
