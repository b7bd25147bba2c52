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

#include "common/rate_limit.h"
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

// The runtime directory holds the sockets every client trusts, so it must be
// ours alone: created 0700, or an existing real directory (not a symbolic
// link) owned by our uid that neither group nor others may use. On refusal
// `why` says what is wrong with it, naming the path.
bool EnsureDir(const std::string& dir, std::string* why) {
  const uid_t me = geteuid();
  if (mkdir(dir.c_str(), 0700) == 0) {
    // Whatever the umask left, it is ours and private.
    if (chmod(dir.c_str(), 0700) != 0) {
      *why = "cannot set the mode of " + dir + ": " + strerror(errno);
      return false;
    }
  } else if (errno != EEXIST) {
    *why = "cannot create " + dir + ": " + strerror(errno);
    return false;
  }
  struct stat st;
  if (lstat(dir.c_str(), &st) != 0) {
    *why = "cannot examine " + dir + ": " + strerror(errno);
    return false;
  }
  char detail[128];
  if (S_ISLNK(st.st_mode)) {
    snprintf(detail, sizeof(detail), " is a symbolic link");
  } else if (!S_ISDIR(st.st_mode)) {
    snprintf(detail, sizeof(detail), " is not a directory");
  } else if (st.st_uid != me) {
    snprintf(detail, sizeof(detail), " belongs to uid %u, not to uid %u", static_cast<unsigned>(st.st_uid),
             static_cast<unsigned>(me));
  } else if ((st.st_mode & 077) != 0) {
    snprintf(detail, sizeof(detail), " has mode %04o: group or others have access (it must be 0700)",
             static_cast<unsigned>(st.st_mode & 07777));
  } else {
    return true;
  }
  *why = "binder directory " + dir + detail;
  return false;
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
// listener is gone. Anything else at the path is left alone and refused.
// Returns the fd, or -1 with `why` set.
int BindServiceSocket(const std::string& path, std::string* why) {
  struct sockaddr_un addr;
  if (!FillAddress(path, &addr)) {
    *why = "socket path " + path + " is too long";
    return -1;
  }
  lumx::unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.ok()) {
    *why = std::string("socket: ") + strerror(errno);
    return -1;
  }
  struct stat st;
  if (lstat(path.c_str(), &st) == 0) {
    if (!S_ISSOCK(st.st_mode)) {
      *why = path + (S_ISLNK(st.st_mode) ? " is a symbolic link" : " exists and is not a socket");
      return -1;
    }
    lumx::unique_fd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (probe.ok() && (connect(probe.get(), reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) == 0 ||
                       errno == EAGAIN || errno == EINPROGRESS)) {
      struct ucred cred = {};
      socklen_t len = sizeof(cred);
      getsockopt(probe.get(), SOL_SOCKET, SO_PEERCRED, &cred, &len);
      char who[96];
      snprintf(who, sizeof(who), " is served by another process (pid %d, uid %u)", static_cast<int>(cred.pid),
               static_cast<unsigned>(cred.uid));
      *why = path + who;
      return -1;
    }
    unlink(path.c_str());  // stale: nobody listens there
  }
  if (bind(fd.get(), reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0 ||
      chmod(path.c_str(), 0600) != 0 || listen(fd.get(), 128) != 0) {
    *why = "cannot listen on " + path + ": " + strerror(errno);
    return -1;
  }
  return fd.release();
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
  const char* xdg = getenv("XDG_RUNTIME_DIR");
  if (xdg != nullptr && xdg[0] == '/') return std::string(xdg) + "/lumx-binder";
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
  const std::string path = SocketPathFor(RuntimeDir(), instance);
  struct sockaddr_un addr;
  if (!FillAddress(path, &addr)) return nullptr;
  lumx::unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.ok()) return nullptr;
  int rc;
  do {
    rc = connect(fd.get(), reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr));
  } while (rc != 0 && errno == EINTR);
  if (rc != 0) return nullptr;

  // Only a process of our own uid, or root, may answer for a service:
  // anybody else could have planted the socket.
  struct ucred cred = {};
  socklen_t len = sizeof(cred);
  if (getsockopt(fd.get(), SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0) return nullptr;
  if (cred.uid != geteuid() && cred.uid != 0) {
    static lumx::LogRateLimiter limiter;
    uint64_t held = 0;
    if (limiter.Allow(&held)) {
      __android_log_print(ANDROID_LOG_ERROR, kTag,
                          "%s: refusing %s: it is served by uid %u (pid %d), not by uid %u or root",
                          instance.c_str(), path.c_str(), static_cast<unsigned>(cred.uid),
                          static_cast<int>(cred.pid), static_cast<unsigned>(geteuid()));
    }
    return nullptr;
  }

  // The service speaks first: its hello, or why it will not take us (read
  // before we send anything, which a refusing service would not read).
  Runtime* r = rt();
  uint8_t buf[kFrameHeaderSize];
  if (!ReadFully(fd.get(), buf, sizeof(buf), NowMs() + hello_timeout_ms)) return nullptr;
  Frame peer;
  const char* why = nullptr;
  if (DecodeOneFrame(buf, sizeof(buf), &peer, &why) == DecodeStatus::kOk && peer.type == kFrameRefuse) {
    // Lookups are retried in loops: one line a second.
    static lumx::LogRateLimiter limiter;
    uint64_t held = 0;
    if (limiter.Allow(&held)) {
      __android_log_print(ANDROID_LOG_ERROR, kTag, "%s: pid %d refused the connection: %s (limit %llu)",
                          instance.c_str(), static_cast<int>(cred.pid),
                          peer.code == kRefuseTooManyFromPeer ? "this process has too many connections open to it"
                                                              : "it has too many connections open",
                          static_cast<unsigned long long>(peer.target));
    }
    return nullptr;
  }
  if (why != nullptr || peer.type != kFrameHello || peer.target == 0) {
    __android_log_print(ANDROID_LOG_WARN, kTag, "%s: bad greeting from service socket",
                        instance.c_str());
    return nullptr;
  }
  Frame hello;
  hello.type = kFrameHello;
  hello.target = r->nonce;
  hello.code = static_cast<uint32_t>(getpid());
  std::vector<uint8_t> bytes;
  EncodeFrame(hello, &bytes);
  if (!SendFully(fd.get(), bytes.data(), bytes.size())) return nullptr;

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
      std::string why;
      int fd = -1;
      if (lumx_binder::EnsureDir(dir, &why)) {
        fd = lumx_binder::BindServiceSocket(lumx_binder::SocketPathFor(dir, name), &why);
      }
      if (fd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, lumx_binder::kTag, "addService(%s): %s", instance,
                            why.c_str());
        return EX_ILLEGAL_STATE;
      }
      lumx_binder::TrackFd(fd);
      if (!r->looper.AddListener(fd)) {
        __android_log_print(ANDROID_LOG_ERROR, lumx_binder::kTag, "addService(%s): cannot watch %s",
                            instance, lumx_binder::SocketPathFor(dir, name).c_str());
        lumx_binder::UntrackFd(fd);
        close(fd);
        return EX_ILLEGAL_STATE;
      }
      lumx_binder::IncStrong(binder);
      r->services[name] = binder;
      r->listeners[name] = fd;
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
