// The wire decoder on its own, and a live service fed malformed, truncated,
// oversized and nonsensical frames over raw sockets: each bad connection is
// answered with an error or closed, and the service keeps serving.
#include <gtest/gtest.h>

#include "platform/host/binder/frame.h"
#include "platform/host/binder/internal.h"
#include "raw_peer.h"

namespace {

using lumx_binder::DecodeStatus;
using lumx_binder::Frame;
using lumx_binder::FrameDecoder;
using lumx_binder::WireObject;
using lumx_test::Encode;

Frame SampleFrame() {
  Frame f;
  f.type = lumx_binder::kFrameTransact;
  f.txn_id = 77;
  f.target = 5;
  f.code = 3;
  f.flags = 0;
  f.sender_token = 11;
  f.route_token = 12;
  WireObject o;
  o.kind = lumx_binder::kObjectSenderLocal;
  o.offset = 4;
  o.id = 99;
  o.descriptor = "lumx.test.X";
  f.objects.push_back(o);
  f.data = {1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0};
  return f;
}

void Put32(std::vector<uint8_t>* b, size_t at, uint32_t v) { memcpy(b->data() + at, &v, 4); }

DecodeStatus DecodeAll(const std::vector<uint8_t>& bytes, Frame* f) {
  FrameDecoder d;
  d.Append(bytes.data(), bytes.size());
  return d.Next(f);
}

TEST(FrameDecoderTest, RoundTripByteByByteAndBackToBack) {
  const Frame f = SampleFrame();
  std::vector<uint8_t> bytes = Encode(f);
  EXPECT_EQ(lumx_binder::kFrameHeaderSize + 20 + 12 + 12, bytes.size());
  std::vector<uint8_t> two = bytes;
  two.insert(two.end(), bytes.begin(), bytes.end());

  FrameDecoder d;
  Frame out;
  int frames = 0;
  for (uint8_t b : two) {
    d.Append(&b, 1);
    DecodeStatus st;
    while ((st = d.Next(&out)) == DecodeStatus::kOk) {
      ++frames;
      auto fields = [](const Frame& x) {
        return std::make_tuple(x.type, x.txn_id, x.target, x.code, x.flags, x.sender_token, x.route_token, x.data);
      };
      EXPECT_EQ(fields(f), fields(out));
      ASSERT_EQ(1u, out.objects.size());
      const WireObject& o = out.objects[0];
      EXPECT_EQ(std::make_tuple(f.objects[0].kind, 4u, uint64_t{99}, std::string("lumx.test.X")),
                std::make_tuple(o.kind, o.offset, o.id, o.descriptor));
      EXPECT_EQ(bytes.size(), out.wire_size);
    }
    ASSERT_EQ(DecodeStatus::kNeedMore, st);
  }
  EXPECT_EQ(2, frames);
  EXPECT_EQ(0u, d.buffered());
}

TEST(FrameDecoderTest, RejectsCorruptHeaders) {
  const std::vector<uint8_t> good = Encode(SampleFrame());
  Frame out;
  struct Case {
    const char* what;
    size_t at;
    uint32_t value;
  } cases[] = {
      {"bad magic", 0, 0x12345678},
      {"size below header", 4, 8},
      {"size above 1 MiB", 4, (1u << 20) + 1},
      {"unknown type", 8, 42},
      {"object count beyond frame", 12, 1000},
      {"unknown object kind", 56, 7},
      {"object offset outside data", 60, 12},
      {"misaligned object offset", 60, 2},
      {"descriptor too long", 72, 5000},
      {"descriptor beyond frame", 72, 40},
  };
  for (const Case& c : cases) {
    std::vector<uint8_t> b = good;
    Put32(&b, c.at, c.value);
    EXPECT_EQ(DecodeStatus::kError, DecodeAll(b, &out)) << c.what;
  }
  // Object id 0 and objects in a control frame.
  std::vector<uint8_t> b = good;
  Put32(&b, 64, 0);
  Put32(&b, 68, 0);
  EXPECT_EQ(DecodeStatus::kError, DecodeAll(b, &out)) << "object id 0";
  Frame hello = SampleFrame();
  hello.type = lumx_binder::kFrameHello;
  EXPECT_EQ(DecodeStatus::kError, DecodeAll(Encode(hello), &out));

  // An oversized frame is refused from its first 8 bytes, before any body.
  FrameDecoder d;
  std::vector<uint8_t> head(8);
  Put32(&head, 0, lumx_binder::kFrameMagic);
  Put32(&head, 4, 64u << 20);
  d.Append(head.data(), head.size());
  EXPECT_EQ(DecodeStatus::kError, d.Next(&out));
  EXPECT_EQ(DecodeStatus::kError, d.Next(&out)) << "errors are sticky";
}

TEST(FrameDecoderTest, EncoderRefusesFramesAboveTheLimit) {
  Frame f = SampleFrame();
  f.data.assign(1u << 20, 0);
  std::vector<uint8_t> out;
  EXPECT_FALSE(lumx_binder::EncodeFrame(f, &out));
  EXPECT_TRUE(out.empty());
  f.data.assign((1u << 20) - 200, 0);
  EXPECT_TRUE(lumx_binder::EncodeFrame(f, &out));
}

// ---- a live service fed by hand ----

using lumx_test::RawPeer;
using lumx_test::StringBytes;

using LiveServiceTest = lumx_test::LocalServiceTest;

TEST_F(LiveServiceTest, GarbageAndOversizedFramesCloseOnlyTheirConnection) {
  const int fds_before = lumx_test::CountOpenFds(getpid());
  std::vector<uint8_t> oversized(8);
  Put32(&oversized, 0, lumx_binder::kFrameMagic);
  Put32(&oversized, 4, 16u << 20);
  Frame second_hello;
  second_hello.type = lumx_binder::kFrameHello;
  second_hello.target = 1;
  const struct {
    const char* what;
    bool hello;
    std::vector<uint8_t> bytes;
  } cases[] = {
      {"garbage", false, std::vector<uint8_t>(64, 0xa5)},
      {"the first frame must be a hello", false, Encode(SampleFrame())},
      {"an oversized frame is refused by its header", true, oversized},
      {"a second hello", true, Encode(second_hello)},
  };
  for (const auto& c : cases) {
    RawPeer peer(path_);
    ASSERT_TRUE(peer.connected());
    if (c.hello) {
      ASSERT_TRUE(peer.Hello());
    }
    peer.Send(c.bytes);
    EXPECT_TRUE(peer.Closed()) << c.what;
  }
  {
    RawPeer truncated(path_);
    ASSERT_TRUE(truncated.Hello());
    std::vector<uint8_t> half = Encode(SampleFrame());
    half.resize(half.size() / 2);
    truncated.Send(half);
  }  // hangs up mid-frame
  EXPECT_TRUE(lumx_test::WaitUntil([&] { return lumx_test::CountOpenFds(getpid()) <= fds_before; }))
      << "descriptors of closed connections are released";
  EXPECT_TRUE(ServiceWorks());
}

TEST_F(LiveServiceTest, NonsenseTransactionsGetErrorReplies) {
  RawPeer peer(path_);
  ASSERT_TRUE(peer.Hello());
  EXPECT_EQ(STATUS_BAD_VALUE, peer.Call(12345, 1, {})) << "unknown target object";
  EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, peer.Call(0, 1, {})) << "context object, unknown code";
  const uint64_t id = peer.ServiceId(name_);
  ASSERT_NE(0u, id);

  const std::vector<uint8_t>& token = token_;
  EXPECT_EQ(STATUS_OK, peer.Call(id, lumx_binder::kPingTransaction, {}));
  EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, peer.Call(id, 0x01000000, token)) << "reserved code";
  EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, peer.Call(id, 999, token)) << "code the stub ignores";
  EXPECT_EQ(STATUS_BAD_TYPE, peer.Call(id, 1, StringBytes("lumx.test.Wrong")));
  EXPECT_EQ(STATUS_BAD_TYPE, peer.Call(id, 1, {})) << "no interface token";
  EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, peer.Call(id, 1, token)) << "echo without its argument";

  // A parcel naming an object of the service's process that it never gave.
  std::vector<uint8_t> with_obj = token;
  const uint32_t slot_at = static_cast<uint32_t>(with_obj.size());
  with_obj.insert(with_obj.end(), {1, 0, 0, 0, 0, 0, 0, 0});
  WireObject o;
  o.kind = lumx_binder::kObjectReceiverLocal;
  o.offset = slot_at;
  o.id = 777777;
  EXPECT_EQ(STATUS_BAD_VALUE,
            peer.Call(id, lumx_test::ITestService::TRANSACTION_echoBinder, with_obj, {o}));

  // A working call with a real argument.
  std::vector<uint8_t> echo = token;
  echo.insert(echo.end(), {42, 0, 0, 0});
  Frame reply;
  ASSERT_EQ(STATUS_OK, peer.Call(id, lumx_test::ITestService::TRANSACTION_echo, echo, {}, &reply));
  ASSERT_EQ(8u, reply.data.size());
  EXPECT_EQ(42, reply.data[4]);

  // A release of something never given is ignored; the connection lives.
  Frame rel;
  rel.type = lumx_binder::kFrameRelease;
  rel.target = 4242;
  rel.code = 3;
  ASSERT_TRUE(peer.Send(rel));
  EXPECT_EQ(STATUS_OK, peer.Call(id, lumx_binder::kPingTransaction, {}));

  // A synchronous call without a transaction id is a protocol error.
  Frame bad;
  bad.type = lumx_binder::kFrameTransact;
  bad.target = id;
  bad.code = 1;
  ASSERT_TRUE(peer.Send(bad));
  EXPECT_TRUE(peer.Closed());
  EXPECT_TRUE(ServiceWorks());
}

TEST_F(LiveServiceTest, ObjectsHandedToARawPeerAreReleasedOnHangUpOrRelease) {
  for (const bool hang_up : {true, false}) {
    SCOPED_TRACE(hang_up ? "hang-up" : "release frame");
    auto peer = std::make_unique<RawPeer>(path_);
    ASSERT_TRUE(peer->Hello());
    const uint64_t id = peer->ServiceId(name_);
    Frame reply;
    ASSERT_EQ(STATUS_OK, peer->Call(id, lumx_test::ITestService::TRANSACTION_newSession, token_, {}, &reply));
    ASSERT_EQ(1u, reply.objects.size());
    EXPECT_EQ(hang_up ? 0 : 1, shared_.sessions_destroyed.load());
    Frame rel;
    rel.type = lumx_binder::kFrameRelease;
    rel.target = reply.objects[0].id;
    rel.code = 1;
    if (hang_up) {
      peer.reset();
    } else {
      ASSERT_TRUE(peer->Send(rel));
    }
    EXPECT_TRUE(lumx_test::WaitUntil([&] { return shared_.sessions_destroyed.load() == (hang_up ? 1 : 2); }));
  }
}

}  // namespace
