#include "frame.h"

#include <string.h>

namespace lumx_binder {

namespace {

constexpr size_t kObjectFixedSize = 20;
constexpr size_t kReadChunk = 64 * 1024;
// A buffer this large or smaller is kept for the next frame; a larger one
// (left by a big frame) is given back once empty.
constexpr size_t kKeptCapacity = 16 * 1024;

size_t Pad4(size_t n) { return (n + 3) & ~static_cast<size_t>(3); }

void Put32(uint8_t* p, uint32_t v) { memcpy(p, &v, 4); }
void Put64(uint8_t* p, uint64_t v) { memcpy(p, &v, 8); }
uint32_t Get32(const uint8_t* p) {
  uint32_t v;
  memcpy(&v, p, 4);
  return v;
}
uint64_t Get64(const uint8_t* p) {
  uint64_t v;
  memcpy(&v, p, 8);
  return v;
}

}  // namespace

size_t EncodedFrameSize(const Frame& f, size_t data_size) {
  size_t n = kFrameHeaderSize + data_size;
  for (const WireObject& o : f.objects) n += kObjectFixedSize + Pad4(o.descriptor.size());
  return n;
}

bool EncodeFrame(const Frame& f, std::vector<uint8_t>* out) {
  return EncodeFrameWithData(f, f.data.data(), f.data.size(), out);
}

bool EncodeFrameWithData(const Frame& f, const uint8_t* data, size_t data_size,
                         std::vector<uint8_t>* out) {
  for (const WireObject& o : f.objects) {
    if (o.descriptor.size() > kMaxDescriptorLength) return false;
  }
  if (data_size > kMaxFrameSize) return false;
  const size_t size = EncodedFrameSize(f, data_size);
  if (size > kMaxFrameSize) return false;
  const size_t base = out->size();
  out->resize(base + size);
  uint8_t* p = out->data() + base;
  Put32(p + 0, kFrameMagic);
  Put32(p + 4, static_cast<uint32_t>(size));
  Put32(p + 8, f.type);
  Put32(p + 12, static_cast<uint32_t>(f.objects.size()));
  Put64(p + 16, f.txn_id);
  Put64(p + 24, f.target);
  Put32(p + 32, f.code);
  Put32(p + 36, f.flags);
  Put64(p + 40, f.sender_token);
  Put64(p + 48, f.route_token);
  p += kFrameHeaderSize;
  for (const WireObject& o : f.objects) {
    Put32(p + 0, o.kind);
    Put32(p + 4, o.offset);
    Put64(p + 8, o.id);
    Put32(p + 16, static_cast<uint32_t>(o.descriptor.size()));
    p += kObjectFixedSize;
    const size_t padded = Pad4(o.descriptor.size());
    memset(p, 0, padded);
    if (!o.descriptor.empty()) memcpy(p, o.descriptor.data(), o.descriptor.size());
    p += padded;
  }
  if (data_size > 0) memcpy(p, data, data_size);
  return true;
}

DecodeStatus DecodeOneFrame(const uint8_t* data, size_t size, Frame* out, const char** error) {
  auto fail = [error](const char* why) {
    *error = why;
    return DecodeStatus::kError;
  };
  if (size < kFrameHeaderSize) return fail("truncated frame header");
  if (Get32(data) != kFrameMagic) return fail("bad frame magic");
  const uint32_t declared = Get32(data + 4);
  if (declared < kFrameHeaderSize) return fail("frame size below header size");
  if (declared > kMaxFrameSize) return fail("frame larger than 1 MiB");
  if (declared != size) return fail("frame size mismatch");

  Frame f;
  f.type = Get32(data + 8);
  if (f.type < kFrameHello || f.type > kFrameRefuse) return fail("unknown frame type");
  f.wire_size = declared;
  const uint32_t n_objects = Get32(data + 12);
  f.txn_id = Get64(data + 16);
  f.target = Get64(data + 24);
  f.code = Get32(data + 32);
  f.flags = Get32(data + 36);
  f.sender_token = Get64(data + 40);
  f.route_token = Get64(data + 48);

  size_t pos = kFrameHeaderSize;
  if (n_objects > (size - pos) / kObjectFixedSize) return fail("object count exceeds frame");
  if (n_objects > 0 && f.type != kFrameTransact && f.type != kFrameReply) {
    return fail("objects in a control frame");
  }
  f.objects.reserve(n_objects);
  for (uint32_t i = 0; i < n_objects; ++i) {
    if (size - pos < kObjectFixedSize) return fail("truncated object");
    WireObject o;
    o.kind = Get32(data + pos);
    o.offset = Get32(data + pos + 4);
    o.id = Get64(data + pos + 8);
    const uint32_t desc_len = Get32(data + pos + 16);
    pos += kObjectFixedSize;
    if (o.kind != kObjectSenderLocal && o.kind != kObjectReceiverLocal) {
      return fail("unknown object kind");
    }
    if (o.id == 0) return fail("object id 0");
    if (desc_len > kMaxDescriptorLength) return fail("descriptor too long");
    const size_t padded = Pad4(desc_len);
    if (size - pos < padded) return fail("truncated descriptor");
    o.descriptor.assign(reinterpret_cast<const char*>(data + pos), desc_len);
    pos += padded;
    f.objects.push_back(std::move(o));
  }
  f.data.assign(data + pos, data + size);
  for (const WireObject& o : f.objects) {
    if (o.offset % 4 != 0 || static_cast<size_t>(o.offset) + 8 > f.data.size()) {
      return fail("object offset outside data");
    }
  }
  *out = std::move(f);
  return DecodeStatus::kOk;
}

void FrameDecoder::Compact() {
  if (begin_ == 0) return;
  memmove(buf_.data(), buf_.data() + begin_, end_ - begin_);
  end_ -= begin_;
  begin_ = 0;
}

uint8_t* FrameDecoder::WritableArea(size_t* max) {
  Compact();
  if (buf_.size() < end_ + kReadChunk) buf_.resize(end_ + kReadChunk);
  *max = buf_.size() - end_;
  return buf_.data() + end_;
}

void FrameDecoder::Commit(size_t n) {
  end_ += n;
  buf_.resize(end_);
}

void FrameDecoder::Append(const uint8_t* data, size_t size) {
  Compact();
  buf_.resize(end_);
  buf_.insert(buf_.end(), data, data + size);
  end_ += size;
}

void FrameDecoder::Consumed(size_t n) {
  begin_ += n;
  if (begin_ < end_) return;
  begin_ = end_ = 0;
  buf_.clear();
  if (buf_.capacity() > kKeptCapacity) std::vector<uint8_t>().swap(buf_);
}

DecodeStatus FrameDecoder::Next(Frame* out) {
  if (error_ != nullptr) return DecodeStatus::kError;
  const size_t avail = end_ - begin_;
  if (avail < 8) return DecodeStatus::kNeedMore;
  const uint8_t* p = buf_.data() + begin_;
  // Check magic and size as soon as they arrive, so garbage or an oversized
  // frame is rejected without waiting for (or buffering) a megabyte.
  if (Get32(p) != kFrameMagic) return Fail("bad frame magic");
  const uint32_t size = Get32(p + 4);
  if (size < kFrameHeaderSize) return Fail("frame size below header size");
  if (size > kMaxFrameSize) return Fail("frame larger than 1 MiB");
  if (avail < size) return DecodeStatus::kNeedMore;
  const char* why = nullptr;
  DecodeStatus st = DecodeOneFrame(p, size, out, &why);
  if (st != DecodeStatus::kOk) return Fail(why);
  Consumed(size);
  return DecodeStatus::kOk;
}

}  // namespace lumx_binder
