#pragma once

#include <sys/types.h>

#include <string>

#include "file_descriptor.h"

namespace hyl::v2::tool {

/// A picture that appears under its name when it is complete, and never before.
class PictureFile {
 public:
  /// Makes an empty file beside `path`, whose name ends in ".svg" or ".png". Throws Failure when
  /// there is no place for it.
  explicit PictureFile(std::string path);
  PictureFile(const PictureFile&) = delete;
  PictureFile& operator=(const PictureFile&) = delete;
  /// Removes what is not complete.
  ~PictureFile();

  /// Where to draw. The name of the file is never handed on.
  int fd() const { return draft_.get(); }
  bool is_svg() const;

  /// Gives the picture its name. Throws Failure when it is not whole.
  void Publish();

 private:
  bool IsWhole() const;

  const std::string path_;
  std::string draft_path_;  // empty once published
  FileDescriptor draft_;
};

/// A gnuplot process that draws what it is told.
class Gnuplot {
 public:
  /// Starts the process, whose pictures go to `output`. Throws Failure when there is none.
  explicit Gnuplot(int output);
  Gnuplot(const Gnuplot&) = delete;
  Gnuplot& operator=(const Gnuplot&) = delete;
  ~Gnuplot();

  /// Has `script` carried out and waits for the end of it; to be called once. Throws Failure.
  void Run(const std::string& script);

 private:
  int Wait();

  FileDescriptor input_;
  pid_t process_ = -1;  // -1 once it has ended
};

/// `text` as a string of gnuplot's, which cannot be read as anything else.
std::string GnuplotString(const std::string& text);

}  // namespace hyl::v2::tool
