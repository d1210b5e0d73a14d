// The picture storage peer of the tests and benchmarks: a real
// S3-compatible store (tests/peer, installed by scripts/install-deps.sh) run
// as a child process on a loopback address, plus a signed HTTP client to
// look at what it holds, and small raw TCP servers that misbehave.
//
// The peer is ended by stop(), by the destructor, and also when the process
// that started it dies in any way (its standard input closes and the kernel
// sends it SIGKILL when its parent goes).
#ifndef OXCFG_TESTS_SUPPORT_S3_PEER_H
#define OXCFG_TESTS_SUPPORT_S3_PEER_H

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace s3test {

// A port on which nothing listens at `address` right now (0 on failure).
uint16_t freePort(const std::string& address);

// Lower-case hexadecimal SHA-256 of `data`.
std::string sha256Hex(const std::string& data);

// One request as the peer saw it.
struct JournalEntry {
  std::string method;
  std::string url;
  bool signed_ = false;      // carried an AWS4-HMAC-SHA256 authorization
  std::string sha256;        // x-amz-content-sha256 ("" when absent)
  std::string contentType;   // "" when absent
  long length = 0;           // Content-Length
  int remotePort = 0;        // client's port: one per connection
  int status = 0;            // status answered
};

class S3Peer {
 public:
  S3Peer() = default;
  ~S3Peer() { stop(); }
  S3Peer(const S3Peer&) = delete;
  S3Peer& operator=(const S3Peer&) = delete;

  // Why the peer cannot run on this machine ("" when it can).
  static std::string unavailableReason();

  // Starts the peer on address:port (port 0: any) with one key pair, storing
  // under `workDir` (made if missing). False with `error` set on failure.
  bool start(const std::string& address, uint16_t port, const std::string& accessKey,
             const std::string& secretKey, const std::string& workDir, std::string* error);
  void stop();
  bool running() const { return pid_ > 0; }
  uint16_t port() const { return port_; }
  // Every request answered so far, in order.
  std::vector<JournalEntry> journal() const;

 private:
  pid_t pid_ = -1;
  int stdinFd_ = -1;
  uint16_t port_ = 0;
  std::string journalPath_;
};

struct HttpAnswer {
  int curlCode = -1;  // 0 when an answer came
  long status = 0;
  std::string body;
};

// A signed request (AWS Signature Version 4, as the library sends them) on
// one reused connection: GET or DELETE without a body, PUT with one.
class SignedHttp {
 public:
  SignedHttp(std::string accessKey, std::string secretKey);
  ~SignedHttp();
  SignedHttp(const SignedHttp&) = delete;
  SignedHttp& operator=(const SignedHttp&) = delete;
  HttpAnswer request(const std::string& method, const std::string& url, const std::string& body = "");

 private:
  void* curl_;
  std::string accessKey_;
  std::string secretKey_;
};

// A TCP server on address:port (0: any) that answers every connection by
// running `behaviour` on the accepted descriptor, then closes it. Counts
// connections. Stops in the destructor.
class RawServer {
 public:
  enum Behaviour {
    kSilent,        // reads and never answers
    kGarbage,       // answers bytes that are not HTTP
    kCloseMidBody,  // a 200 whose body ends early
    kOk,            // a 200 with an empty body
  };
  RawServer(const std::string& address, uint16_t port, Behaviour behaviour);
  ~RawServer();
  bool listening() const { return fd_ >= 0; }
  uint16_t port() const { return port_; }
  int connections() const { return connections_.load(); }

 private:
  void serve();
  int fd_ = -1;
  uint16_t port_ = 0;
  Behaviour behaviour_;
  std::atomic<bool> stop_{false};
  std::atomic<int> connections_{0};
  std::thread thread_;
};

}  // namespace s3test

#endif  // OXCFG_TESTS_SUPPORT_S3_PEER_H
