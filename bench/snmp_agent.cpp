#include "bench/snmp_agent.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/files.h"

namespace {

/// Debian's.
constexpr const char* kSnmpd = "/usr/sbin/snmpd";
constexpr oid kSystem[] = {1, 3, 6, 1, 2, 1, 1};
constexpr std::size_t kSystemLength = sizeof kSystem / sizeof kSystem[0];

/// A port that is free now. If somebody else takes it first, the agent does not answer.
std::uint16_t freeUdpPort() {
  const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  (void)::bind(socket, reinterpret_cast<sockaddr*>(&address), size);
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
  ::close(socket);
  return ntohs(address.sin_port);
}

pid_t startAgent(const std::string& configuration, const std::string& address) {
  const pid_t parent = ::getpid();
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() == parent) {
      ::execl(kSnmpd, kSnmpd, "-f", "-Ln", "-r", "-C", "-c", configuration.c_str(), "-I",
              "system_mib,sysORTable", address.c_str(), static_cast<char*>(nullptr));
    }
    ::_exit(1);
  }
  return child;
}

}  // namespace

struct SnmpAgent::Implementation {
  Implementation() {
    // Neither side looks at the machine's configuration, or leaves anything behind.
    const std::string directory = files.path().string();
    ::setenv("SNMPCONFPATH", directory.c_str(), 1);
    ::setenv("SNMP_PERSISTENT_DIR", directory.c_str(), 1);
    ::setenv("MIBS", "", 1);
    const std::string configuration = files.file("own.conf");
    std::ofstream(configuration) << "rocommunity public 127.0.0.1\n";
    address = "udp:127.0.0.1:" + std::to_string(freeUdpPort());
    // The agent would tell that it has made it.
    std::filesystem::create_directory(files.path() / "cert_indexes");
    child = startAgent(configuration, address);
    init_snmp("link_bench");
    open();
  }
  ~Implementation() {
    if (session != nullptr) {
      snmp_close(session);
    }
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
  }

  void open() {
    snmp_session wanted;
    snmp_sess_init(&wanted);
    wanted.version = SNMP_VERSION_2c;
    wanted.peername = address.data();
    wanted.community = reinterpret_cast<unsigned char*>(community.data());
    wanted.community_len = community.size();
    // The agent is still starting: ask it again until it answers.
    wanted.timeout = 100000;
    wanted.retries = 100;
    session = snmp_open(&wanted);
  }

  /// The value behind `name`, which becomes its name. False at the end of the subtree.
  bool next(oid* name, std::size_t& length) const {
    snmp_pdu* const request = snmp_pdu_create(SNMP_MSG_GETNEXT);
    snmp_add_null_var(request, name, length);
    snmp_pdu* response = nullptr;
    if (snmp_synch_response(session, request, &response) != STAT_SUCCESS) {
      return false;
    }
    const variable_list* const value = response->variables;
    const bool found =
        response->errstat == SNMP_ERR_NOERROR && value != nullptr &&
        value->type != SNMP_ENDOFMIBVIEW &&
        snmp_oidtree_compare(value->name, value->name_length, kSystem, kSystemLength) == 0;
    if (found) {
      length = value->name_length;
      std::copy_n(value->name, length, name);
    }
    snmp_free_pdu(response);
    return found;
  }

  const qov::test::TemporaryDirectory files;
  std::string address;
  std::string community = "public";
  pid_t child = -1;
  snmp_session* session = nullptr;
};

SnmpAgent::SnmpAgent() : implementation_(std::make_unique<Implementation>()) {
  if (implementation_->session == nullptr || walk() == 0) {
    implementation_.reset();
  }
}

SnmpAgent::~SnmpAgent() = default;

int SnmpAgent::walk() const {
  oid name[MAX_OID_LEN];
  std::size_t length = kSystemLength;
  std::copy_n(kSystem, length, name);
  int values = 0;
  while (implementation_->next(name, length)) {
    ++values;
  }
  return values;
}
