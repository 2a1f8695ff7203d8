// The log: lines, sinks that log or replace themselves, and sinks replaced under fire.
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>

#include "tests/support/test.hpp"

namespace {

using namespace br::literals;

// Standard error while it lives goes into a pipe.
class CapturedStandardError {
 public:
  CapturedStandardError() : saved_(dup(STDERR_FILENO)) {
    EXPECT_EQ(pipe(pipe_), 0);
    dup2(pipe_[1], STDERR_FILENO);
    close(pipe_[1]);
  }
  ~CapturedStandardError() { restore(); }
  // What came so far; standard error is put back.
  std::string text() {
    restore();
    std::string all;
    char part[4096];
    for (ssize_t count; (count = read(pipe_[0], part, sizeof part)) > 0;)
      all.append(part, static_cast<size_t>(count));
    close(pipe_[0]);
    return all;
  }

 private:
  void restore() {
    if (saved_ < 0) return;
    dup2(saved_, STDERR_FILENO);
    close(saved_);
    saved_ = -1;
  }
  int saved_;
  int pipe_[2];
};

struct Received {
  std::vector<std::string> lines;
  static void sink(BRLogLevel level, const char* message, void* context) {
    static_cast<Received*>(context)->lines.push_back(std::to_string(level) + message);
  }
};

TEST(Log, WritesOneLineWithItsLevelToStandardError) {
  CapturedStandardError captured;
  BRLog(kBRLogLevelError, "clip %@: %d%%", "reel 7"_br, 42);
  BRLog(kBRLogLevelInfo, "%s", "");
  BRLog(kBRLogLevelDebug, "bad \xFF byte");
  BRLog(kBRLogLevelDebug, nullptr);
  EXPECT_EQ(captured.text(), "error: clip reel 7: 42%\ninfo: \ndebug: bad \uFFFD byte\n");
}

TEST(Log, SinkReceivesMessagesUntilItIsReplaced) {
  Received received;
  CapturedStandardError captured;
  BRLogSetSink(Received::sink, &received);
  errno = 77;
  BRLog(kBRLogLevelInfo, "%.3f", 0.5);
  BRLog(kBRLogLevelError, "broken %n", nullptr);
  EXPECT_EQ(errno, 77);
  BRLogSetSink(nullptr, nullptr);
  BRLog(kBRLogLevelError, "later");
  EXPECT_EQ(received.lines, (std::vector<std::string>{"20.500", "1broken %n"}));
  EXPECT_EQ(captured.text(), "error: later\n");
}

TEST(Log, SinkMayLogAndReplaceItself) {
  static Received received;
  received.lines.clear();
  CapturedStandardError captured;
  BRLogSetSink(
      [](BRLogLevel, const char* message, void*) {
        BRLog(kBRLogLevelInfo, "from the sink: %s", message);
        BRLogSetSink(Received::sink, &received);
      },
      nullptr);
  BRLog(kBRLogLevelError, "one");
  BRLog(kBRLogLevelError, "two");
  BRLogSetSink(nullptr, nullptr);
  EXPECT_EQ(captured.text(), "info: from the sink: one\n");
  EXPECT_EQ(received.lines, (std::vector<std::string>{"1two"}));
}

TEST(LogThreads, LinesOfSeveralThreadsStayWhole) {
  CapturedStandardError captured;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t] {
      for (int i = 0; i < 100; ++i) BRLog(kBRLogLevelDebug, "%d:%03d%50s", t, i, "|");
    });
  for (auto& thread : threads) thread.join();
  const std::string text = captured.text();
  const size_t lineBytes = 7 + 5 + 50 + 1;
  ASSERT_EQ(text.size(), 400 * lineBytes);
  for (size_t at = 0; at < text.size(); at += lineBytes) {
    EXPECT_EQ(text.substr(at, 7), "debug: ");
    EXPECT_EQ(text.substr(at + lineBytes - 2, 2), "|\n");
  }
}

// A sink with a context that is dead once the sink was replaced.
struct Mortal {
  std::atomic<bool> alive{true};
  std::atomic<int> calls{0};
  static void sink(BRLogLevel, const char*, void* context) {
    auto* self = static_cast<Mortal*>(context);
    EXPECT_TRUE(self->alive);
    ++self->calls;
    std::this_thread::yield();
    EXPECT_TRUE(self->alive);
  }
};

TEST(LogThreads, ReplacedSinkIsNeverCalledAgain) {
  std::vector<Mortal> sinks(200);
  BRLogSetSink(Mortal::sink, &sinks[0]);
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t)
    threads.emplace_back([&stop] {
      while (!stop) BRLog(kBRLogLevelDebug, "x");
    });
  for (size_t i = 1; i < sinks.size(); ++i) {
    while (sinks[i - 1].calls == 0) std::this_thread::yield();
    BRLogSetSink(Mortal::sink, &sinks[i]);
    sinks[i - 1].alive = false;
  }
  stop = true;
  for (auto& thread : threads) thread.join();
  BRLogSetSink(nullptr, nullptr);
}

// Sinks that replace each other while another thread waits for them: nobody may wait for himself.
TEST(LogThreads, SinksReplacingSinksDoNotDeadlock) {
  static std::atomic<int> calls;
  calls = 0;
  struct Swap {
    static void sink(BRLogLevel, const char*, void*) {
      ++calls;
      BRLogSetSink(Swap::sink, nullptr);
    }
  };
  BRLogSetSink(Swap::sink, nullptr);
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t)
    threads.emplace_back([] {
      for (int i = 0; i < 300; ++i) {
        BRLog(kBRLogLevelDebug, "x");
        BRLogSetSink(Swap::sink, nullptr);
      }
    });
  for (auto& thread : threads) thread.join();
  BRLogSetSink(nullptr, nullptr);
  EXPECT_EQ(calls, 900);
}

}  // namespace
