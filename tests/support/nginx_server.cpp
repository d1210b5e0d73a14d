#include "support/nginx_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/env.h"
#include "support/test_support.h"

namespace oxtest {

namespace {

bool isExecutable(const std::string& path) { return ::access(path.c_str(), X_OK) == 0; }

bool accepts(int port) {
  int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<uint16_t>(port));
  bool ok = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
  ::close(fd);
  return ok;
}

}  // namespace

std::string NginxServer::findProgram() {
  std::vector<std::string> dirs = {"/usr/sbin", "/usr/local/sbin", "/usr/local/nginx/sbin"};
  if (const char* path = std::getenv("PATH")) {
    std::string p = path;
    for (size_t start = 0; start <= p.size();) {
      size_t colon = p.find(':', start);
      if (colon == std::string::npos) colon = p.size();
      if (colon > start) dirs.push_back(p.substr(start, colon - start));
      start = colon + 1;
    }
  }
  for (const auto& d : dirs) {
    if (isExecutable(d + "/nginx")) return d + "/nginx";
  }
  return "";
}

bool NginxServer::start(const std::string& workDir, const std::string& certificate, const std::string& key,
                        const std::string& passwordFile, std::string* error) {
  certificate_ = certificate;
  key_ = key;
  passwordFile_ = passwordFile;
  // The port is chosen before nginx binds it; another process may take it
  // in between, so a failed start is tried again on a new port.
  for (int attempt = 0; attempt < 5; ++attempt) {
    if (startOnce(workDir, error)) return true;
  }
  return false;
}

bool NginxServer::startOnce(const std::string& workDir, std::string* error) {
  stop();
  const std::string program = findProgram();
  if (program.empty()) {
    *error = "nginx is not installed";
    return false;
  }
  port_ = freeLoopbackPort();
  if (port_ == 0) {
    *error = "no free loopback port";
    return false;
  }
  ::mkdir(workDir.c_str(), 0755);
  const std::string conf = workDir + "/nginx.conf", errorLog = workDir + "/error.log";
  std::string text =
      "daemon off;\n"
      "master_process off;\n"
      "pid " + workDir + "/nginx.pid;\n"
      "error_log " + errorLog + " info;\n"
      "events { worker_connections 16; }\n"
      "http {\n"
      "  access_log off;\n"
      "  client_body_temp_path " + workDir + "/client_body;\n"
      "  proxy_temp_path " + workDir + "/proxy;\n"
      "  fastcgi_temp_path " + workDir + "/fastcgi;\n"
      "  uwsgi_temp_path " + workDir + "/uwsgi;\n"
      "  scgi_temp_path " + workDir + "/scgi;\n"
      "  server {\n"
      "    listen 127.0.0.1:" + std::to_string(port_) + " ssl;\n"
      "    ssl_certificate " + certificate_ + ";\n"
      "    ssl_certificate_key " + key_ + ";\n";
  if (!passwordFile_.empty()) text += "    ssl_password_file " + passwordFile_ + ";\n";
  text +=
      "    location / { return 200 \"ok\\n\"; }\n"
      "  }\n"
      "}\n";
  writeFile(conf, text);
  writeFile(errorLog, "");

  std::vector<std::string> args = {program, "-p", workDir + "/", "-c", conf, "-e", errorLog};
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  const std::string output = workDir + "/output.log";
  const int out = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  const pid_t parent = ::getpid();
  pid_t pid = ::fork();
  if (pid < 0) {
    if (out >= 0) ::close(out);
    *error = "fork failed";
    return false;
  }
  if (pid == 0) {
    // Dies with the test process; only async-signal-safe calls here.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(127);
    if (out >= 0) {
      ::dup2(out, STDOUT_FILENO);
      ::dup2(out, STDERR_FILENO);
    }
    int devnull = ::open("/dev/null", O_RDONLY);
    if (devnull >= 0) ::dup2(devnull, STDIN_FILENO);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  if (out >= 0) ::close(out);
  pid_ = pid;
  // Waits up to 20 s for the first connection (the machine may be busy).
  for (int i = 0; i < 400; ++i) {
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      *error = "nginx exited: " + readFile(output) + readFile(errorLog);
      return false;
    }
    if (accepts(port_)) return true;
    ::usleep(50 * 1000);
  }
  *error = "nginx did not accept connections: " + readFile(errorLog);
  stop();
  return false;
}

void NginxServer::stop() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGTERM);
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
}

std::string NginxServer::servedCertificate(std::string* output) const {
  OxBase::CommandResult r = OxBase::Env::Default()->Run(
      {"openssl", "s_client", "-connect", "127.0.0.1:" + std::to_string(port_), "-servername", "localhost"}, "",
      "");
  if (output) *output = r.output;
  const std::string begin = "-----BEGIN CERTIFICATE-----", end = "-----END CERTIFICATE-----";
  size_t b = r.output.find(begin);
  if (b == std::string::npos) return "";
  size_t e = r.output.find(end, b);
  if (e == std::string::npos) return "";
  return r.output.substr(b, e + end.size() - b) + "\n";
}

}  // namespace oxtest
