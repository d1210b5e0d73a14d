// A real nginx for tests: one unprivileged-style, foreground, single-process
// server on a free port of 127.0.0.1, serving HTTPS with the key,
// certificate and password file it is given. Its configuration, pid file,
// error log and temporary folders live in a folder of the test's own; the
// server is stopped by the destructor, and killed by the kernel if the test
// process dies first.
#ifndef OXCFG_TESTS_SUPPORT_NGINX_SERVER_H
#define OXCFG_TESTS_SUPPORT_NGINX_SERVER_H

#include <sys/types.h>

#include <string>

namespace oxtest {

class NginxServer {
 public:
  // The nginx program, or "" when none is installed.
  static std::string findProgram();

  NginxServer() = default;
  ~NginxServer() { stop(); }
  NginxServer(const NginxServer&) = delete;
  NginxServer& operator=(const NginxServer&) = delete;

  // Starts nginx with its files under `workDir` (created) and waits until it
  // accepts connections. False with the reason (and nginx's error log) in
  // `error` when it does not come up.
  bool start(const std::string& workDir, const std::string& certificate, const std::string& key,
             const std::string& passwordFile, std::string* error);
  // Stops the server and waits for it; does nothing when none runs.
  void stop();
  int port() const { return port_; }

  // The certificate the server presents, as PEM, fetched with OpenSSL's
  // command-line client; "" when the handshake failed (`output` then holds
  // the client's report).
  std::string servedCertificate(std::string* output) const;

 private:
  bool startOnce(const std::string& workDir, std::string* error);

  std::string certificate_, key_, passwordFile_;
  pid_t pid_ = -1;
  int port_ = 0;
};

}  // namespace oxtest

#endif  // OXCFG_TESTS_SUPPORT_NGINX_SERVER_H
