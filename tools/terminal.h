// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace hyl::v2::tool {

/// Owns a file descriptor; -1 is none.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~FileDescriptor() { Close(); }

  int get() const { return fd_; }

  void Close() {
    if (fd_ >= 0) {
      close(std::exchange(fd_, -1));
    }
  }

 private:
  int fd_ = -1;
};

/// Standard output, buffered until Flush, and the signals by which the user ends the tool. Used by
/// the main thread alone.
///
/// While it lives SIGINT, SIGTERM and SIGHUP, as far as they are not ignored, end nothing: they
/// stay pending and are noticed in Flush and Wait, so that they are never lost and never cut an
/// operation short. Must be made before the first thread is started, which inherits the blocked
/// signals.
class Output {
 public:
  explicit Output(int fd);

  /// Adds `text` to what is to be written.
  void Add(std::string_view text) { pending_ += text; }

  /// Writes what has been added. Throws QuietEnd when the reader has gone, or when the user
  /// interrupts while the reader does not read; throws Failure when it cannot be written.
  void Flush();

  /// Waits until `fd` is readable or some milliseconds have passed; -1 for no limit. False when the
  /// user has interrupted. Throws QuietEnd when the reader of the output goes.
  bool Wait(int fd, int milliseconds) const;

  int fd() const { return fd_; }

 private:
  const int fd_;
  FileDescriptor signals_;  // readable for good after an interrupting signal
  std::string pending_;
};

/// Lines on a terminal, drawn over those drawn before, that fit it whatever its size. A picture is
/// made of Begin, its lines from top to bottom, and Draw.
class Panel {
 public:
  /// None where `out` is no terminal on which lines can be drawn again.
  static std::optional<Panel> On(Output& out);

  /// Takes the size of the terminal, which the user can change at any time.
  void Begin();
  /// A line, cut to the width.
  void AddText(const std::string& text);
  /// A label and, in the rest of the line, a bar of which the part `fill` (0 to 1) is full.
  void AddBar(const std::string& label, double fill);
  /// Columns of the heights `parts` (0 to 1); no line where the terminal cannot show them.
  void AddColumns(const std::vector<double>& parts);
  /// Where there are more lines than the terminal has room for, the last that fits says so.
  void Draw();

  /// The width of a line.
  size_t columns() const { return columns_; }

 private:
  Panel(Output& out, bool colour, bool unicode) : out_(out), colour_(colour), unicode_(unicode) {}
  std::string BarCells(double fill, size_t width) const;

  Output& out_;
  const bool colour_;
  const bool unicode_;  // block characters can be shown
  size_t rows_ = 0;     // for lines, without the cursor's
  size_t columns_ = 0;  // without the last, behind which a line would wrap
  std::vector<std::string> lines_;
  size_t drawn_lines_ = 0;
};

}  // namespace hyl::v2::tool
