// Service registry over AF_UNIX sockets: a registered service listens on a
// socket named after it in the runtime directory; a lookup connects there and
// asks the serving process for the object by name.
#include <android/binder_manager.h>
#include <android/log.h>
#include <errno.h>
#include <lumx_host/binder_host.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "connection.h"
#include "internal.h"

namespace lumx_binder {

namespace {

constexpr const char* kTag = "binder";
constexpr int kHelloTimeoutMs = 5000;
constexpr int kGetServiceTimeoutMs = 5000;

uint64_t Fnv1a(const std::string& s) {
  uint64_t h = 1469598103934665603ull;
  for (unsigned char c : s) {
    h ^= c;
    h *= 1099511628211ull;
  }
  return h;
}

bool FillAddress(const std::string& path, struct sockaddr_un* addr) {
  memset(addr, 0, sizeof(*addr));
  addr->sun_family = AF_UNIX;
  if (path.size() >= sizeof(addr->sun_path)) return false;
  memcpy(addr->sun_path, path.c_str(), path.size() + 1);
  return true;
}

bool EnsureDir(const std::string& dir) {
  if (mkdir(dir.c_str(), 0700) == 0) return true;
  if (errno != EEXIST) return false;
  struct stat st;
  return stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

int64_t NowMs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Reads exactly `n` bytes before `deadline_ms`.
bool ReadFully(int fd, uint8_t* buf, size_t n, int64_t deadline_ms) {
  size_t got = 0;
  while (got < n) {
    const int64_t left = deadline_ms - NowMs();
    if (left <= 0) return false;
    struct pollfd pfd = {fd, POLLIN, 0};
    int pr = poll(&pfd, 1, static_cast<int>(left));
    if (pr < 0 && errno == EINTR) continue;
    if (pr <= 0) return false;
    ssize_t r = recv(fd, buf + got, n - got, MSG_DONTWAIT);
    if (r < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (r <= 0) return false;
    got += static_cast<size_t>(r);
  }
  return true;
}

bool SendFully(int fd, const uint8_t* buf, size_t n) {
  size_t sent = 0;
  while (sent < n) {
    ssize_t w = send(fd, buf + sent, n - sent, MSG_NOSIGNAL);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) return false;
    sent += static_cast<size_t>(w);
  }
  return true;
}

// Binds a listening socket at `path`, replacing a stale socket file whose
// listener is gone. Returns the fd or -errno.
int BindServiceSocket(const std::string& path) {
  struct sockaddr_un addr;
  if (!FillAddress(path, &addr)) return -ENAMETOOLONG;
  lumx::unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.ok()) return -errno;
  if (bind(fd.get(), reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0) {
    if (errno != EADDRINUSE) return -errno;
    lumx::unique_fd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!probe.ok()) return -errno;
    if (connect(probe.get(), reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) == 0 ||
        errno == EAGAIN || errno == EINPROGRESS) {
      return -EADDRINUSE;  // somebody is serving it
    }
    probe.reset();
    unlink(path.c_str());
    if (bind(fd.get(), reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0) {
      return -errno;
    }
  }
  if (chmod(path.c_str(), 0600) != 0) return -errno;
  if (listen(fd.get(), 128) != 0) return -errno;
  return fd.release();
}

void AcceptLoop(int listen_fd) {
  for (;;) {
    int c = accept4(listen_fd, nullptr, nullptr, SOCK_CLOEXEC);
    if (c < 0) {
      if (errno == EINTR || errno == ECONNABORTED || errno == EPROTO) continue;
      if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        usleep(10000);  // out of descriptors: let existing ones go first
        continue;
      }
      __android_log_print(ANDROID_LOG_ERROR, kTag, "accept: %s", strerror(errno));
      return;
    }
    std::shared_ptr<Connection> conn = Connection::Create(lumx::unique_fd(c), 0);
    conn->Start(false);
  }
}

AIBinder* FindLocalService(const std::string& name) {
  Runtime* r = rt();
  lumx::MutexLock l(&r->services_mu);
  auto it = r->services.find(name);
  if (it == r->services.end()) return nullptr;
  IncStrong(it->second);
  return it->second;
}

}  // namespace

std::string RuntimeDir() {
  const char* env = getenv("LUMX_BINDER_DIR");
  if (env != nullptr && env[0] != '\0') return env;
  return "/tmp/lumx-binder-" + std::to_string(getuid());
}

std::string SocketPathFor(const std::string& dir, const std::string& instance) {
  std::string escaped;
  for (char c : instance) {
    if (c == '/') {
      escaped += "%2F";
    } else if (c == '%') {
      escaped += "%25";
    } else {
      escaped += c;
    }
  }
  std::string path = dir + "/" + escaped;
  constexpr size_t kMaxPath = sizeof(((struct sockaddr_un*)nullptr)->sun_path) - 1;
  if (path.size() > kMaxPath) {
    // Too long for a socket address: keep a prefix and add a hash of the name.
    char hash[24];
    snprintf(hash, sizeof(hash), "-%016llx", static_cast<unsigned long long>(Fnv1a(instance)));
    const size_t fixed = dir.size() + 1 + strlen(hash);
    const size_t keep = fixed < kMaxPath ? kMaxPath - fixed : 0;
    path = dir + "/" + escaped.substr(0, keep) + hash;
  }
  return path;
}

bool ValidServiceName(const char* name) {
  if (name == nullptr) return false;
  const size_t len = strlen(name);
  if (len == 0 || len > 127) return false;
  for (size_t i = 0; i < len; ++i) {
    const char c = name[i];
    const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '.' || c == '_' || c == '/' || c == '-';
    if (!ok) return false;
  }
  return true;
}

AIBinder* LookupOverSocket(const std::string& instance, int hello_timeout_ms) {
  struct sockaddr_un addr;
  if (!FillAddress(SocketPathFor(RuntimeDir(), instance), &addr)) return nullptr;
  lumx::unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.ok()) return nullptr;
  int rc;
  do {
    rc = connect(fd.get(), reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr));
  } while (rc != 0 && errno == EINTR);
  if (rc != 0) return nullptr;

  Runtime* r = rt();
  Frame hello;
  hello.type = kFrameHello;
  hello.target = r->nonce;
  hello.code = static_cast<uint32_t>(getpid());
  std::vector<uint8_t> bytes;
  EncodeFrame(hello, &bytes);
  if (!SendFully(fd.get(), bytes.data(), bytes.size())) return nullptr;

  uint8_t buf[kFrameHeaderSize];
  if (!ReadFully(fd.get(), buf, sizeof(buf), NowMs() + hello_timeout_ms)) return nullptr;
  Frame peer;
  const char* why = nullptr;
  if (DecodeOneFrame(buf, sizeof(buf), &peer, &why) != DecodeStatus::kOk ||
      peer.type != kFrameHello || peer.target == 0) {
    __android_log_print(ANDROID_LOG_WARN, kTag, "%s: bad greeting from service socket",
                        instance.c_str());
    return nullptr;
  }

  // One connection per peer process, so an object keeps one identity.
  std::shared_ptr<Connection> conn;
  bool fresh = false;
  if (peer.target != r->nonce) {
    lumx::MutexLock l(&r->mu);
    auto it = r->peers.find(peer.target);
    if (it != r->peers.end()) conn = it->second.lock();
    if (conn != nullptr && conn->IsDead()) conn.reset();
    if (conn == nullptr) {
      conn = Connection::Create(std::move(fd), peer.target);
      r->peers[peer.target] = conn;
      fresh = true;
    }
  } else {
    conn = Connection::Create(std::move(fd), peer.target);
    fresh = true;
  }
  if (fresh) conn->Start(true);
  return conn->GetService(instance);
}

}  // namespace lumx_binder

using lumx_binder::rt;

extern "C" {

binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance) {
  if (binder == nullptr || instance == nullptr) return EX_ILLEGAL_ARGUMENT;
  if (!lumx_binder::ValidServiceName(instance)) {
    __android_log_print(ANDROID_LOG_ERROR, lumx_binder::kTag, "addService: invalid name '%s'",
                        instance);
    return EX_ILLEGAL_ARGUMENT;
  }
  if (binder->remote) {
    __android_log_print(ANDROID_LOG_ERROR, lumx_binder::kTag,
                        "addService(%s): only objects of this process can be served", instance);
    return EX_ILLEGAL_ARGUMENT;
  }
  lumx_binder::Runtime* r = rt();
  const std::string name(instance);
  AIBinder* replaced = nullptr;
  {
    lumx::MutexLock l(&r->services_mu);
    auto it = r->services.find(name);
    if (it != r->services.end()) {
      lumx_binder::IncStrong(binder);
      replaced = it->second;
      it->second = binder;
    } else {
      const std::string dir = lumx_binder::RuntimeDir();
      if (!lumx_binder::EnsureDir(dir)) {
        __android_log_print(ANDROID_LOG_ERROR, lumx_binder::kTag,
                            "addService(%s): cannot create %s: %s", instance, dir.c_str(),
                            strerror(errno));
        return EX_ILLEGAL_STATE;
      }
      const std::string path = lumx_binder::SocketPathFor(dir, name);
      int fd = lumx_binder::BindServiceSocket(path);
      if (fd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, lumx_binder::kTag,
                            "addService(%s): cannot listen on %s: %s", instance, path.c_str(),
                            fd == -EADDRINUSE ? "served by another process" : strerror(-fd));
        return EX_ILLEGAL_STATE;
      }
      lumx_binder::TrackFd(fd);
      lumx_binder::IncStrong(binder);
      r->services[name] = binder;
      r->listeners[name] = fd;
      std::thread([fd] { lumx_binder::AcceptLoop(fd); }).detach();
    }
  }
  if (replaced != nullptr) lumx_binder::DecStrong(replaced);
  return EX_NONE;
}

AIBinder* AServiceManager_checkService(const char* instance) {
  if (instance == nullptr) return nullptr;
  AIBinder* local = lumx_binder::FindLocalService(instance);
  if (local != nullptr) return local;
  if (!lumx_binder::ValidServiceName(instance)) return nullptr;
  return lumx_binder::LookupOverSocket(instance, lumx_binder::kHelloTimeoutMs);
}

AIBinder* AServiceManager_getService(const char* instance) {
  if (instance == nullptr || !lumx_binder::ValidServiceName(instance)) return nullptr;
  const int64_t deadline = lumx_binder::NowMs() + lumx_binder::kGetServiceTimeoutMs;
  for (;;) {
    AIBinder* b = AServiceManager_checkService(instance);
    if (b != nullptr) return b;
    if (lumx_binder::NowMs() >= deadline) return nullptr;
    usleep(20000);
  }
}

AIBinder* AServiceManager_waitForService(const char* instance) {
  if (instance == nullptr || !lumx_binder::ValidServiceName(instance)) return nullptr;
  for (;;) {
    AIBinder* b = AServiceManager_checkService(instance);
    if (b != nullptr) return b;
    usleep(20000);
  }
}

bool AServiceManager_isDeclared(const char* instance) {
  AIBinder* b = AServiceManager_checkService(instance);
  if (b == nullptr) return false;
  AIBinder_decStrong(b);
  return true;
}

}  // extern "C"

namespace lumx_host {

AIBinder* ConnectToServiceSocket(const char* instance) {
  if (instance == nullptr || !lumx_binder::ValidServiceName(instance)) return nullptr;
  return lumx_binder::LookupOverSocket(instance, lumx_binder::kHelloTimeoutMs);
}

std::string ServiceSocketPath(const char* instance) {
  return lumx_binder::SocketPathFor(lumx_binder::RuntimeDir(), instance == nullptr ? "" : instance);
}

std::string BinderRuntimeDir() { return lumx_binder::RuntimeDir(); }

}  // namespace lumx_host
