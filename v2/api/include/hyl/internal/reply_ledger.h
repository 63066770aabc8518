#pragma once

#include <algorithm>
#include <cstdint>

#include <hyl/rls_msg_access.h>

namespace hyl::v2::spectral {

/// Counts settings requests and their replies, so that a waiting operation can tell whether its own
/// reply has come. Replies carry no request id, and many answer writes for which nobody waits. Not
/// thread-safe: the reply mutex guards it.
class ReplyLedger {
 public:
  /// A request is about to be sent. Noted before, since its reply may come before the framework
  /// call returns.
  void NoteSent() { ++sent_; }
  /// The request that was noted has been refused: no reply will come.
  void NoteRefused() { NoteSettled(); }

  void NoteReply(RlsAccess access, RlsCommand command) {
    ++handled_;
    NoteSettled();
    if (access == awaited_access_ && command == awaited_command_) {
      awaited_seen_ = true;
    }
  }

  /// A waiting operation is about to send this request.
  void Await(RlsAccess access, RlsCommand command) {
    awaited_access_ = access;
    awaited_command_ = command;
    awaited_seen_ = false;
  }
  /// Whether a reply to the awaited setting has come since Await.
  bool awaited_seen() const { return awaited_seen_; }

  /// Number of replies handled so far.
  uint64_t handled() const { return handled_; }
  /// Number of requests sent so far.
  uint64_t sent() const { return sent_; }
  /// Whether as many replies have come as there were requests when sent() was `sent`.
  bool SettledUpTo(uint64_t sent) const { return settled_ >= sent; }
  /// Expects no more replies to the first `sent` requests.
  void ForgetUpTo(uint64_t sent) {
    if (settled_ < sent) {
      settled_ = sent;
      forgot_ = true;
    }
  }
  /// Whether no reply is owed. Never again once a request has been given up: its late reply would
  /// be taken for another's.
  bool AllSettled() const { return !forgot_ && settled_ == sent_; }

 private:
  void NoteSettled() { settled_ = std::min(settled_ + 1, sent_); }  // surplus replies are ignored

  uint64_t sent_ = 0;
  uint64_t settled_ = 0;  // requests answered, refused or given up; at most sent_
  uint64_t handled_ = 0;
  bool forgot_ = false;
  RlsAccess awaited_access_{};
  RlsCommand awaited_command_{};
  bool awaited_seen_ = false;
};

}  // namespace hyl::v2::spectral
