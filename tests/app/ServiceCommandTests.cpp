// The agents under a real service manager of this account, and the first and the last command a person types.

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>

#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;

struct ServiceCommandTest : testing::Test {
  ServiceCommandTest() {
    fs::create_directories(folder.path() / "home");
    folder.write("tmp/halvo-video-decrypt/left.mkv", "");
    fs::permissions(folder.path() / "tmp", fs::perms::owner_all);
    fs::create_directories(bin);
    fs::copy_file(std::string(HALVO_BIN) + "/halvo", bin / "halvo");  // it finds the agents beside itself
  }
  void agent(const char* name, const std::string& script) {
    folder.write(std::string("bin/") + name, "#!/bin/sh\n" + script + "\n");
    fs::permissions(bin / name, fs::perms::owner_all);
  }
  /// Runs a shell script and gathers what it says; `halvo` is the copy.
  int sh(const std::string& script, const std::string& input = "", std::vector<std::string> inside = {}) {
    folder.write("in", input);
    folder.write("out", "");
    const auto in = FileHandle::openForRead(folder.path() / "in");
    const FileHandle out(::open((folder.path() / "out").c_str(), O_RDWR | O_APPEND | O_CLOEXEC));
    inside.insert(inside.end(), {"sh", "-c", script});
    const Environment environment{{"HOME", folder.path() / "home"},
                                  {"PATH", bin.string() + ":/usr/bin:/bin:/usr/sbin:/sbin"},
                                  {"F", folder.path()},
                                  {"TMPDIR", folder.path() / "tmp"},
                                  {"TZ", "Etc/UTC"}};
    test::ChildProcess command("/usr/bin/env", inside, environment, {{in.fd(), 0}, {out.fd(), 1}, {out.fd(), 2}});
    const auto status = command.wait(150).value_or(-1);
    said = readFile(folder.path() / "out");
    return status;
  }
  /// The same beside a systemd for this account alone, on folders of its own.
  int underSystemd(const std::string& script) {
    const std::string start =
        "mount -t tmpfs tmpfs /run && mkdir -p /run/systemd/system /run/user && chmod 700 /run/user || exit 90\n"
        "export XDG_RUNTIME_DIR=/run/user\n"
        "/lib/systemd/systemd --user >/dev/null 2>&1 &\n"
        "n=0; until systemctl --user show-environment >/dev/null 2>&1; do n=$((n+1)); [ $n -gt 100 ] && exit 90; sleep 0.1; done\n";
    return sh(start + script, "", {"unshare", "--map-root-user", "--mount-proc", "--pid", "--fork", "--kill-child"});
  }
  bool saw(const char* pattern) const { return std::regex_search(said, std::regex(pattern)); }

  test::TemporaryFolder folder;
  fs::path bin = folder.path() / "bin";
  std::string said;
};

TEST_F(ServiceCommandTest, livesUnderTheServiceManager) {
  agent("Supervisor", "stat -c 'its own %a %n' $TMPDIR > $F/own; exec sleep 1000");
  agent("CoachDriver", "exec sleep 1000");
  agent("Consolidate", "exit 0");
  agent("ClassifierVerify", "exit 3");
  agent("LocalModel", "exit 69");
  // Ends whoever calls it with the word that is in the file "at", before that is done.
  agent("systemctl", "[ ! -e $F/at ] || [ \"$2\" != \"$(cat $F/at)\" ] || { rm $F/at; kill -9 $PPID; exit; }; exec /usr/bin/systemctl \"$@\"");
  const int status = underSystemd(
      "R=\"$HOME/Library/Application Support/AmbitCapture/data\"; printf '%s\\n' \"$R\" '' '' 'My Vault' start > $F/answers\n"
      "halvo setup --from-here < $F/answers; cat $HOME/.config/environment.d/60-halvo.conf; ls -ld \"$R\"; halvo services\n"
      "before=$(systemctl --user show -P MainPID com.brindle.lark.supervisor.direct); halvo services restart capture\n"
      "[ $before != $(systemctl --user show -P MainPID com.brindle.lark.supervisor.direct) ] && echo another process\n"
      "sed -i 's/My Vault/Next Vault/' $F/answers; halvo setup --from-here < $F/answers | sed 's/^/2: /'\n"
      "runs() { tr '\\0' '\\n' < /proc/$(systemctl --user show -P MainPID com.brindle.lark.supervisor.direct)/environ | sed -n 's/^AMBITCAP_DENYLIST/runs with/p'; }\n"
      "waits() { n=0; until eval \"$1\"; do n=$((n+1)); [ $n -gt 100 ] && return 1; sleep 0.1; done; }\n"
      // The window's first run, which is set up from outside. It registers nothing from its folder, and starts anew what runs.
      "runs; mv \"${R%/data}/config.json\" $F; sed -i 's/Next Vault/Last Vault/' $HOME/.config/environment.d/60-halvo.conf\n"
      "XDG_CACHE_HOME=$F QT_QPA_PLATFORM=offscreen " HALVO_BIN "/AmbitudeWindow & waits '[ -d $TMPDIR/halvo-review-clips ]'\n"
      "mv $F/config.json \"${R%/data}\"; waits 'runs | grep -q Last.Vault'; runs; kill $!; wait $!\n"
      "halvo services remove coach; for word in daemon-reload enable start; do echo $word > $F/at; halvo services install coach --from-here; done\n"
      "halvo services install coach --from-here; halvo services | sed -n 's/^Coach/anyhow Coach/p'\n"
      "halvo services stop coach; halvo services | sed -n 's/^Coach/then Coach/p'\n"
      "halvo services begin; halvo services | sed -n 's/^Coach/at last Coach/p'\n"
      "cat $F/own; printf '#!/bin/sh\\ntrap : TERM; while :; do sleep 1; done' > $F/bin/LocalModel; halvo services restart model\n"
      "began=$(date +%s); halvo services stop model; echo killed after $(($(date +%s) - began)) s\n"
      "rm $F/bin/Supervisor; kill $(systemctl --user show -P MainPID com.brindle.lark.supervisor.direct)\n"
      "waits '[ $(systemctl --user is-active com.brindle.lark.supervisor.direct) = inactive ]' && echo rests without its program; halvo declare essay\n"
      "echo mine > \"$R/diary\"; echo x > \"$R/signals.sqlite\"; : > $F/id\n"
      "mount --bind $F/id /etc/machine-id && echo remove | halvo uninstall; echo refused $?; umount /etc/machine-id\n"
      "echo 0123456789abcdef0123456789abcdef > $F/id; mount --bind $F/id /etc/machine-id\n"
      "echo no | halvo uninstall; ls \"$R\" | tr '\\n' ' '\n"
      "echo remove | halvo uninstall; echo gone $?; systemctl --user list-units --all --plain --no-legend 'com.brindle*'; find $HOME $TMPDIR -type f");
  if (status == 90) {
    std::puts("no systemd can run for this account: not shown");
    return;
  }
  for (const char* pattern :
       {"Classifier +Set up, but it didn't start", "rolled back: the job exited 3", "AMBITCAP_DENYLIST=\".*,My Vault\"", "drwx------.*data",
        "Capture +running +[0-9]+ +-", "Coach +running", "Nightly memory +waiting for its first run", "Classifier +not installed",
        "Local model +failing +- +69", "another process", "runs with=.*,Next Vault", "runs with=.*,Last Vault", "anyhow Coach +running", "then Coach +stopped", "at last Coach +running",
        "Coach +running [^\n]*has not been at work yet", "its own 700 /run/user/halvo-capture", "killed after [3-9] s", "rests without its program",
        "so nothing was deleted.\nrefused 1", "nothing was removed\ndiary io-layer signals.sqlite video", "not Halvo's, so it stays \\(1\\):\n  diary",
        "removed\ngone 0\n[^\n]*/data/diary\n$"})
    EXPECT_TRUE(saw(pattern)) << pattern << "\n" << said;
}

TEST_F(ServiceCommandTest, uninstallTakesOnlyWhatItSaidAndNoKeyOfWhatStays) {
  const std::string functions =
      "S=\"$HOME/Library/Application Support/AmbitCapture\"; rm -rf $HOME $F/a $F/b; mkdir -p \"$S/keys\" $F/a; echo k > \"$S/keys/k\"\n"
      "configured() { printf '{\"dataRoot\": \"%s\"}' \"$1\" > \"$S/config.json\"; }\n"
      "recorded() { mkdir -p \"$1/video/display-0\"; echo x > \"$1/video/display-0/x.mkv\"; echo mine > \"$1/diary\"; }\n";
  const std::string uninstall = "\necho remove | halvo uninstall; echo status $?; find $HOME $F/a $F/b -type f 2>/dev/null | sed 's,.*/,,' | sort | xargs echo left:";
  const struct { const char *layout, *want; } cases[] = {
      {"recorded \"$S/data\"; configured \"$S/data\"; export AMBITCAP_DATA_ROOT=$F/a", "without their key\nstatus 1\nleft: config.json diary k x.mkv"},
      {"recorded $F/b; configured $F/b; export AMBITCAP_DATA_ROOT=$F/a", "without their key\nstatus 1\nleft: config.json diary k x.mkv"},
      {"export AMBITCAP_DATA_ROOT=$F/b", "without their key\nstatus 1\nleft: k"},
      {"recorded \"$S\"; configured \"$S\"", "it stays \\(1\\):\n  diary\n[^]*status 0\nleft: diary"},
      {"recorded \"$S/data\"; ln -s \"$S/data\" $HOME/link; configured $HOME/link", "it stays \\(1\\):\n  diary\n[^]*status 0\nleft: diary"},
      {"recorded \"$S/data\"; echo { > \"$S/config.json\"", "can't be read[^]*status 1\nleft: config.json diary k x.mkv"},
      {"recorded $F/b; recorded \"$S/data\"; configured $F/b; echo > \"$S/notes\"", "  diary\n[^]*  diary\n[^]*status 0\nleft: diary diary notes"},
      {"mkdir -p $HOME/Library/LaunchAgents; echo > $HOME/Library/LaunchAgents/com.brindle.lark.coach.direct.plist",
       "old installation, to be deleted[^]*status 0\nleft:\n"}};
  for (const auto& c : cases) {
    sh(functions + c.layout + uninstall);
    EXPECT_TRUE(saw(c.want)) << c.layout << "\n" << said;
  }
}

TEST_F(ServiceCommandTest, setUpEndedBeforeItsLastQuestionChangesNothing) {
  folder.write("other/diary", "");
  const std::string answers[] = {folder.path() / "root", "gemma4:nonesuch", "", "y", "A`B", "", "later"};
  std::string input = (folder.path() / "other").string() + "\nrelative\n";
  for (const auto& answer : answers) {
    EXPECT_EQ(sh("halvo setup", input), 1);
    EXPECT_TRUE(saw("nothing was changed")) << said;
    input += answer + "\n";
  }
  EXPECT_EQ(sh("halvo setup", input), 1);
  EXPECT_TRUE(saw("something else in it \\(diary\\)[^]*whole path[^]*none of these[^]*letters, digits")) << said;
  EXPECT_TRUE(fs::is_empty(folder.path() / "home"));
  EXPECT_FALSE(fs::exists(folder.path() / "root"));
}

}  // namespace
}  // namespace halvo
