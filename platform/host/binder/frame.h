// Wire format of the host binder transport, and its decoder.
//
// Everything that comes off a socket goes through FrameDecoder before the
// runtime looks at it, so a malformed, truncated or oversized frame is caught
// here; the decoder is a pure byte-in / frame-out class that a fuzzer can
// drive without sockets.
//
// A frame (little-endian, every field 4-byte aligned):
//   header (56 bytes)
//     u32 magic 'LXB1'        u32 size (whole frame, header included, <= 1 MiB)
//     u32 type                u32 object count
//     u64 txn id              u64 target (object id / nonce)
//     u32 code (or status)    u32 binder flags
//     u64 sender token        u64 route token
//   objects, each: u32 kind, u32 offset in data, u64 id, u32 descriptor
//                  length, descriptor bytes padded to 4
//   data: the parcel bytes (what is left of `size`)
//
// Descriptors do not travel in the frame: a dump transaction's descriptor
// rides as SCM_RIGHTS ancillary data on the frame's first byte (see
// Connection).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace lumx_binder {

constexpr uint32_t kFrameMagic = 0x3142584c;  // "LXB1"
constexpr size_t kFrameHeaderSize = 56;
constexpr size_t kMaxFrameSize = 1u << 20;  // 1 MiB, whole frame
constexpr size_t kMaxDescriptorLength = 1024;

enum FrameType : uint32_t {
  // Both ends send one first: target = process nonce, code = pid.
  kFrameHello = 1,
  // A call on one of the receiver's objects (target = its id; 0 = the
  // connection's own context object, which answers service lookups).
  kFrameTransact = 2,
  // Answer to the synchronous transaction txn id; code = binder status.
  kFrameReply = 3,
  // The sender dropped its proxy of the receiver's object `target`, which it
  // had received `code` times.
  kFrameRelease = 4,
  // The receiver started running one-way calls totalling `code` bytes of
  // frames (flow control credit back to their sender).
  kFrameAck = 5,
  // Sent by a service instead of its hello when it will not take the
  // connection: code = why (RefuseReason), target = the limit reached.
  kFrameRefuse = 6,
};

enum RefuseReason : uint32_t {
  kRefuseTooManyFromPeer = 1,  // the connecting process has too many open
  kRefuseTooMany = 2,          // the service has too many open in all
};

enum ObjectKind : uint32_t {
  kObjectSenderLocal = 1,    // an object of the sending process
  kObjectReceiverLocal = 2,  // an object of the receiving process, coming back
};

// Codes the runtime answers itself, outside the user range.
constexpr uint32_t kPingTransaction = 0x5f504e47;        // '_PNG'
constexpr uint32_t kGetServiceTransaction = 0x5f475356;  // '_GSV', to target 0
// AIBinder_dump on a proxy: the target's class onDump runs with the caller's
// descriptor, which travels as SCM_RIGHTS ancillary data with the frame's
// first byte; the data is int32 argument count, then the arguments as
// strings. The reply (empty) comes once onDump has returned.
constexpr uint32_t kDumpTransaction = 0x5f444d50;  // '_DMP'

struct WireObject {
  uint32_t kind = 0;
  uint32_t offset = 0;
  uint64_t id = 0;
  std::string descriptor;
};

struct Frame {
  uint32_t type = 0;
  uint64_t txn_id = 0;
  uint64_t target = 0;
  uint32_t code = 0;
  uint32_t flags = 0;
  uint64_t sender_token = 0;
  uint64_t route_token = 0;
  std::vector<WireObject> objects;
  std::vector<uint8_t> data;
  uint32_t wire_size = 0;  // set by the decoder
};

// Appends the encoding of `f` to `out`. Returns false (and appends nothing)
// if the frame would exceed kMaxFrameSize or a descriptor is too long.
bool EncodeFrame(const Frame& f, std::vector<uint8_t>* out);
// The same with the data taken from `data` instead of f.data.
bool EncodeFrameWithData(const Frame& f, const uint8_t* data, size_t data_size,
                         std::vector<uint8_t>* out);

// Size of the encoding of `f` with `data_size` data bytes (may exceed
// kMaxFrameSize).
size_t EncodedFrameSize(const Frame& f, size_t data_size);

enum class DecodeStatus {
  kOk,        // a frame was produced
  kNeedMore,  // no complete frame buffered yet
  kError,     // the stream is corrupt; the connection must be closed
};

// Splits a byte stream into frames. Feed it whatever the socket returned.
// It holds only the bytes of the frame in progress: an idle connection's
// decoder owns no buffer.
class FrameDecoder {
 public:
  // Copies bytes read from the socket in.
  void Append(const uint8_t* data, size_t size);
  // Or: where to put up to `max` bytes read from the socket; then Commit(n).
  uint8_t* WritableArea(size_t* max);
  void Commit(size_t n);

  // Takes the next complete frame out of the buffer. After kError every
  // further call returns kError.
  DecodeStatus Next(Frame* out);

  const char* error() const { return error_; }
  size_t buffered() const { return end_ - begin_; }

 private:
  void Compact();
  void Consumed(size_t n);
  DecodeStatus Fail(const char* why) {
    error_ = why;
    return DecodeStatus::kError;
  }

  std::vector<uint8_t> buf_;
  size_t begin_ = 0;
  size_t end_ = 0;
  const char* error_ = nullptr;
};

// Decodes exactly one frame from `data`; fails if `size` is not exactly its
// size. The pure core of FrameDecoder.
DecodeStatus DecodeOneFrame(const uint8_t* data, size_t size, Frame* out, const char** error);

}  // namespace lumx_binder
