#include "gnuplot.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string_view>
#include <system_error>
#include <utility>

#include <android-base/stringprintf.h>

#include "failure.h"
#include "text.h"

namespace hyl::v2::tool {
namespace {

Failure DrawFailure(const std::string& reason) {
  return Failure(ExitCode::kOutput, "cannot draw the picture: " + reason);
}

Failure PlaceFailure(const std::string& path, int error) {
  return DrawFailure("'" + path + "': " + std::generic_category().message(error) +
                     "; choose another name or place");
}

/// A short name beside `path` that starts with a dot, so that it is out of the way.
std::string DraftPath(const std::string& path) {
  return path.substr(0, path.rfind('/') + 1) + ".hyl-spectral." + std::to_string(getpid());
}

/// Throws Failure where no file can be at `path` whose draft was made beside it: a folder is there,
/// or the name is too long.
void RequirePlaceForFile(const std::string& path) {
  struct stat status = {};
  const bool there = stat(path.c_str(), &status) == 0;
  const int error = !there ? errno : S_ISDIR(status.st_mode) ? EISDIR : 0;
  if (error != 0 && error != ENOENT) {
    throw PlaceFailure(path, error);
  }
}

bool EndsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

/// What the child process starts with: its input from the pipe, and its output to the picture.
class SpawnActions {
 public:
  SpawnActions(int input, int output) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawn_file_actions_adddup2(&actions_, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }

  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

}  // namespace

PictureFile::PictureFile(std::string path) : path_(std::move(path)), draft_path_(DraftPath(path_)) {
  RequirePlaceForFile(path_);
  draft_ = FileDescriptor(open(draft_path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (draft_.get() < 0) {
    throw PlaceFailure(path_, errno);
  }
}

PictureFile::~PictureFile() {
  if (!draft_path_.empty()) {
    unlink(draft_path_.c_str());
  }
}

bool PictureFile::is_svg() const {
  return EndsWith(path_, ".svg");
}

void PictureFile::Publish() {
  if (!IsWhole()) {
    throw DrawFailure("gnuplot left it incomplete; make room for '" + path_ + "', then try again");
  }
  if (std::rename(draft_path_.c_str(), path_.c_str()) != 0) {
    throw PlaceFailure(path_, errno);
  }
  draft_path_.clear();
}

bool PictureFile::IsWhole() const {
  std::ifstream file(draft_path_, std::ios::binary);
  std::string content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  content.erase(content.find_last_not_of('\n') + 1);
  return EndsWith(content, is_svg() ? "</svg>" : "IEND\xAE\x42\x60\x82");
}

Gnuplot::Gnuplot(int output) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    throw DrawFailure("no pipe to be had; close some files, then try again");
  }
  const FileDescriptor child_end(ends[0]);
  input_ = FileDescriptor(ends[1]);
  // The child inherits the blocked signals: Ctrl-C does not tear a picture that is being drawn.
  std::string name = "gnuplot";
  char* const arguments[] = {name.data(), nullptr};
  const SpawnActions actions(child_end.get(), output);
  if (posix_spawnp(&process_, name.c_str(), actions.get(), nullptr, arguments, environ) != 0) {
    process_ = -1;
    throw DrawFailure("gnuplot does not start; install it, or leave --plot out");
  }
}

Gnuplot::~Gnuplot() {
  Wait();
}

void Gnuplot::Run(const std::string& script) {
  std::string_view rest = script;
  while (!rest.empty()) {
    const ssize_t written = write(input_.get(), rest.data(), rest.size());
    if (written >= 0) {
      rest.remove_prefix(static_cast<size_t>(written));
    } else if (errno != EINTR) {
      throw DrawFailure("gnuplot has ended early; check that it works, then try again");
    }
  }
  if (Wait() != 0) {
    throw DrawFailure("gnuplot reports an error; check that it works, then try again");
  }
}

int Gnuplot::Wait() {
  input_.Close();
  const pid_t process = std::exchange(process_, -1);
  int status = -1;
  while (process > 0 && waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

std::string GnuplotString(const std::string& text) {
  // Within double quotes, where only what is escaped has no meaning.
  std::string quoted = "\"";
  for (const char character : Printable(text)) {
    const auto byte = static_cast<unsigned char>(character);
    quoted += std::isalnum(byte) != 0 ? std::string(1, character)
                                      : android::base::StringPrintf("\\%03o", unsigned{byte});
  }
  return quoted + "\"";
}

}  // namespace hyl::v2::tool
