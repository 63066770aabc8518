#pragma once

#include <functional>
#include <memory>
#include <string>

#include "terminal.h"

namespace hyl::v2::tool {

/// How a run of the tool ended, and what it wrote.
struct RunResult {
  int code;
  std::string out;
  std::string err;
};

/// Runs the tool in this process. `arguments` is the command line without the program's name, its
/// words parted by single blanks.
RunResult RunCaptured(const std::string& arguments);

/// The same with another standard output.
RunResult RunInto(int out, const std::string& arguments);

/// Lets the signals that interrupt the tool wait for a run, from the calling thread's point of
/// view.
void BlockSignals();

struct Pipe {
  Pipe();
  FileDescriptor reader;
  FileDescriptor writer;
};

/// A terminal, and the end from which a test reads what is shown on it.
struct TestTerminal {
  explicit TestTerminal(unsigned short rows);
  FileDescriptor screen;
  FileDescriptor reader;
};

/// Reads `fd` to its end on a thread of its own, and calls `on_first` when the first bytes have
/// come.
class Reader {
 public:
  Reader(int fd, std::function<void()> on_first);
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;
  ~Reader();

  /// Waits for the end; what was read.
  const std::string& Text();

 private:
  struct State;
  const std::unique_ptr<State> state_;
};

}  // namespace hyl::v2::tool
