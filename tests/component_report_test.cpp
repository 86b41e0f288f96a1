// SPDX-License-Identifier: BSD-3-Clause
#include "component_exe/finding.h"
#include "component_exe/process.h"
#include "support.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace bfcl::component;
using std::chrono::milliseconds;

namespace {

struct Tool {
  const char* name;
  std::vector<std::string> argv;
  const char* failure;
  const char* output;
};

std::vector<std::string> shell(const std::string& script) {
  return {"sh", "-c", script};
}

TEST(Process, SaysHowAToolEndsAndKeepsItsOutput) {
  const Tool tools[] = {
      {"status", shell("echo out; echo one >&2; echo two >&2; exit 3"), "tool failed with status 3: two", "out\n"},
      {"signal", shell("echo out; kill -TERM $$"), "tool was ended by signal 15 (Terminated)", "out\n"},
      {"slow", shell("echo early; sleep 60"), "tool took too long and was ended", "early\n"},
      {"slow without streams", shell("exec >&- 2>&-; sleep 60"), "tool took too long and was ended", ""},
      {"not there", {"bfcl-no-such-tool"}, "tool is not installed", ""},
      {"a folder", {"/"}, "tool cannot be started: Permission denied", ""},
  };
  for (const Tool& tool : tools) {
    SCOPED_TRACE(tool.name);
    const bool is_slow = std::string(tool.name).starts_with("slow");
    const ToolResult result = run_tool(tool.argv, "", milliseconds(is_slow ? 500 : 60000));
    EXPECT_FALSE(result.ok());
    EXPECT_EQ(describe_failure("tool", result), tool.failure);
    EXPECT_EQ(result.output, tool.output);
  }
}

class ReportTest : public InTempDir {};

TEST_F(ReportTest, EndsWhatPrintsForEverAndWhatATimedOutToolStarted) {
  const ToolResult endless = run_tool({"yes"}, "");
  EXPECT_EQ(describe_failure("yes", endless), "yes printed too much and was ended");
  EXPECT_LT(endless.output.size(), MAX_TOOL_OUTPUT + 100000);
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  pollfd held = {open("fifo", O_RDONLY | O_NONBLOCK), POLLIN, 0};
  const ToolResult parent = run_tool(shell("exec 9>fifo; echo x >&9; sleep 60 & wait"), "", milliseconds(500));
  EXPECT_EQ(parent.end, ToolResult::End::timed_out);
  char text[2];
  EXPECT_EQ(read(held.fd, text, 2), 2);
  EXPECT_EQ(poll(&held, 1, 30000), 1) << "the child still runs";
  EXPECT_EQ(held.revents, POLLHUP);
  close(held.fd);
}

// In the order of files, lines as numbers, severities and texts, each once.
TEST_F(ReportTest, PrintsFindingsSortedAndOnce) {
  Report report;
  Report other;
  report.error("hdl", {"b.v", 1}, "last");
  report.warning("file-unneeded", {"a.v", 10}, "tenth");
  other.error("hdl", {"a.v", 9}, "y", "  details\n");
  other.error("hdl", {"a.v", 9}, "x");
  other.error("hdl", {"a.v", 9}, "x");
  other.warning("hdl", {"a.v", 9}, "w");
  other.error("hdl", {"a.v", 0}, "no line");
  other.note("n.xml", "f: ok");
  report.merge(std::move(other));
  report.withdraw("hdl", "la");
  testing::internal::CaptureStdout();
  report.print();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "a.v: error: no line [hdl]\n"
                                                    "a.v:9: error: x [hdl]\n"
                                                    "a.v:9: error: y [hdl]\n  details\n"
                                                    "a.v:9: warning: w [hdl]\n"
                                                    "a.v:10: warning: tenth [file-unneeded]\n"
                                                    "n.xml: f: ok\n");
  EXPECT_EQ(report.status(), STATUS_ERROR);
  report.cannot_check("n.xml", "no tool");
  EXPECT_EQ(report.status(), STATUS_NOT_CHECKED);
}

} // namespace
