// A client speaking the host binder protocol by hand over a raw socket, for
// tests that feed a service what the runtime itself never sends.
#pragma once

#include <android/binder_parcel.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include <lumx_host/binder_host.h>
#include <lumx_host/log_capture.h>

#include "platform/host/binder/frame.h"
#include "platform/host/binder/internal.h"
#include "test_util.h"

namespace lumx_test {

using lumx_binder::Frame;

inline std::vector<uint8_t> Encode(const Frame& f) {
  std::vector<uint8_t> out;
  EXPECT_TRUE(lumx_binder::EncodeFrame(f, &out));
  return out;
}

// A string as a parcel carries it (also an interface token).
inline std::vector<uint8_t> StringBytes(const std::string& s) {
  AParcel p;
  AParcel_writeString(&p, s.c_str(), static_cast<int32_t>(s.size()));
  return p.data;
}

class RawPeer {
 public:
  explicit RawPeer(const std::string& path) {
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
    connected_ = connect(fd_, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) == 0;
  }
  ~RawPeer() { close(fd_); }
  RawPeer(const RawPeer&) = delete;
  RawPeer& operator=(const RawPeer&) = delete;
  bool connected() const { return connected_; }

  bool Send(const std::vector<uint8_t>& b) {
    size_t off = 0;
    while (off < b.size()) {
      ssize_t n = send(fd_, b.data() + off, b.size() - off, MSG_NOSIGNAL);
      if (n <= 0) return false;
      off += static_cast<size_t>(n);
    }
    return true;
  }
  bool Send(const Frame& f) { return Send(Encode(f)); }
  // The frame in one message with `fd` as SCM_RIGHTS, as the runtime sends
  // a dump.
  bool SendWithFd(const Frame& f, int fd) {
    std::vector<uint8_t> b = Encode(f);
    iovec iov = {b.data(), b.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr msg = {};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof control;
    cmsghdr* c = CMSG_FIRSTHDR(&msg);
    c->cmsg_level = SOL_SOCKET;
    c->cmsg_type = SCM_RIGHTS;
    c->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(c), &fd, sizeof fd);
    return sendmsg(fd_, &msg, MSG_NOSIGNAL) == static_cast<ssize_t>(b.size());
  }
  // Greets the service; true if it greets back. `first` gets its first frame.
  bool Hello(Frame* first = nullptr) {
    Frame h;
    h.type = lumx_binder::kFrameHello;
    h.target = 0xabcdef;
    h.code = 1;
    Frame peer;
    const bool sent = Send(h);  // a refusing service may hang up before reading it
    const bool got = Recv(&peer);
    if (first != nullptr) *first = peer;
    return sent && got && peer.type == lumx_binder::kFrameHello;
  }
  // The next frame from the service, or false on close / timeout / garbage.
  bool Recv(Frame* f) {
    for (;;) {
      lumx_binder::DecodeStatus st = decoder_.Next(f);
      if (st == lumx_binder::DecodeStatus::kOk) return true;
      if (st == lumx_binder::DecodeStatus::kError) return false;
      struct pollfd pfd = {fd_, POLLIN, 0};
      if (poll(&pfd, 1, 20000) <= 0) return false;
      size_t max = 0;
      uint8_t* dst = decoder_.WritableArea(&max);
      ssize_t n = recv(fd_, dst, max, 0);
      if (n <= 0) return false;
      decoder_.Commit(static_cast<size_t>(n));
    }
  }
  // True once the service closed the connection (what it sent is skipped).
  bool Closed() {
    char buf[4096];
    for (;;) {
      struct pollfd pfd = {fd_, POLLIN, 0};
      if (poll(&pfd, 1, 20000) <= 0) return false;
      ssize_t n = recv(fd_, buf, sizeof(buf), MSG_DONTWAIT);
      if (n == 0) return true;
      if (n < 0 && errno != EAGAIN && errno != EINTR) return true;
    }
  }
  // A transaction frame (a synchronous one gets the next transaction id).
  Frame Transaction(uint64_t target, uint32_t code, std::vector<uint8_t> data, bool oneway = false) {
    Frame f;
    f.type = lumx_binder::kFrameTransact;
    f.txn_id = oneway ? 0 : ++txn_;
    f.flags = oneway ? FLAG_ONEWAY : 0;
    f.target = target;
    f.code = code;
    f.data = std::move(data);
    return f;
  }
  // A synchronous transaction; returns the reply's status, or 1 if none came.
  int32_t Call(uint64_t target, uint32_t code, const std::vector<uint8_t>& data,
               std::vector<lumx_binder::WireObject> objects = {}, Frame* reply_out = nullptr) {
    Frame f = Transaction(target, code, data);
    f.objects = std::move(objects);
    if (!Send(f)) return 1;
    Frame reply;
    if (!Recv(&reply) || reply.type != lumx_binder::kFrameReply || reply.txn_id != txn_) return 1;
    if (reply_out != nullptr) *reply_out = reply;
    return static_cast<int32_t>(reply.code);
  }
  // The id of the service `name` of the peer, 0 if none.
  uint64_t ServiceId(const std::string& name) {
    Frame reply;
    EXPECT_EQ(STATUS_OK, Call(0, lumx_binder::kGetServiceTransaction, StringBytes(name), {}, &reply));
    EXPECT_EQ(1u, reply.objects.size());
    return reply.objects.empty() ? 0 : reply.objects[0].id;
  }

 private:
  int fd_ = -1;
  bool connected_ = false;
  lumx_binder::FrameDecoder decoder_;
  uint64_t txn_ = 0;
};

// A TestService of this process under a fresh name, reached over its socket
// by raw peers and by the runtime. Its log lines are captured, not echoed.
class LocalServiceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    static int n = 0;
    name_ = "lumx.test.ITestService/local" + std::to_string(++n);
    service_ = ndk::SharedRefBase::make<TestService>(&shared_);
    ASSERT_EQ(EX_NONE, AServiceManager_addService(service_->asBinder().get(), name_.c_str()));
    path_ = lumx_host::ServiceSocketPath(name_.c_str());
    log_.setEcho(false);
  }
  void TearDown() override { shared_.release.store(true); }

  // A proxy of the service through its socket, not the local object.
  std::shared_ptr<ITestService> Remote() {
    ndk::SpAIBinder b(lumx_host::ConnectToServiceSocket(name_.c_str()));
    return AIBinder_isRemote(b.get()) ? ITestService::fromBinder(b) : nullptr;
  }
  bool ServiceWorks() {
    auto svc = Remote();
    int32_t ret = 0;
    return svc != nullptr && svc->echo(31, &ret).isOk() && ret == 31;
  }
  std::unique_ptr<RawPeer> Greeted(uint64_t* id) {
    auto peer = std::make_unique<RawPeer>(path_);
    EXPECT_TRUE(peer->Hello());
    *id = peer->ServiceId(name_);
    return peer;
  }

  BinderDirScope dir_;
  // The registry keeps the service, and its view of this, for good.
  ServerShared& shared_ = *new ServerShared();
  std::shared_ptr<TestService> service_;
  std::string name_, path_;
  const std::vector<uint8_t> token_ = StringBytes(ITestService::descriptor);
  lumx_host::LogCapture log_;
};

}  // namespace lumx_test
