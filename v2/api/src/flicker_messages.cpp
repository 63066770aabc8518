// SPDX-License-Identifier: Apache-2.0
#include <hyl/hyl_spectral_impl.h>

#include "log.h"

namespace hyl::v2 {
namespace {

FlickerSampleBlock BlockFrom(const FlickerDataResp& message) {
  FlickerSampleBlock block{};
  block.restart = message.restart;
  block.aux8_0 = message.aux8_0;
  block.aux8_1 = message.aux8_1;
  block.aux16_0 = message.aux16_0;
  block.aux16_1 = message.aux16_1;
  block.aux16_2 = message.aux16_2;
  block.aux32_0 = message.aux32_0;
  block.aux32_1 = message.aux32_1;
  block.auxf_0 = message.auxf_0;
  block.auxf_1 = message.auxf_1;
  return block;
}

}  // namespace

void HylSpectralImpl::FlickerFormatMsg(uint64_t cookie, const FlickerFormatResp* message) {
  const std::lock_guard lock(mutex_);
  Session* const session = session_mgr_.FindByCookie(cookie);
  if (session == nullptr) {
    HYL_LOG(WARNING, "Can't find session for cookie:%lx to handle flicker format msg!", cookie);
    return;
  }
  session->format_param = message->format_param;
  session->converter.Configure(message->width, message->little_endian != 0, message->msb,
                               message->lsb);
}

void HylSpectralImpl::FlickerDataMsg(uint64_t cookie, const FlickerDataResp* message) {
  if (message == nullptr || callback_ == nullptr || message->size == 0) {
    return;
  }
  FlickerSampleBlock block;
  uint32_t session_id = 0;
  {
    const std::lock_guard lock(mutex_);
    Session* const session = session_mgr_.FindByCookie(cookie);
    if (session == nullptr) {
      HYL_LOG(WARNING, "Can't find session for cookie:%lx to handle flicker data msg!", cookie);
      return;
    }
    SampleConverter& converter = session->converter;
    if (message->data == nullptr) {
      HYL_LOG(ERROR, "Flicker data msg without data (size:%zu)",
              static_cast<size_t>(message->size));
      return;
    }
    const uint32_t seq_num = converter.GetSeqNum(message->offset);
    if (!converter.Convert(message->data, message->size, message->restart)) {
      return;
    }
    block = BlockFrom(*message);
    block.num_samples = static_cast<uint32_t>(converter.out_count_);
    block.seq_num = seq_num;
    block.format_param = session->format_param;
    block.samples = converter.out_buf_;
    session_id = session->id;
  }
  callback_->OnFlickerData(session_id, &block);
}

}  // namespace hyl::v2
