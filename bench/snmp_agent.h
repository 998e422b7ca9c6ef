#ifndef QOV_BENCH_SNMP_AGENT_H
#define QOV_BENCH_SNMP_AGENT_H

#include <sys/types.h>

#include <memory>

/// An snmpd of this process's own, with a configuration of its own on a free port, and a session
/// with it.
class SnmpAgent {
 public:
  SnmpAgent();
  ~SnmpAgent();
  SnmpAgent(const SnmpAgent&) = delete;
  SnmpAgent& operator=(const SnmpAgent&) = delete;

  /// Whether it could be started and answers.
  bool answers() const { return implementation_ != nullptr; }

  /// Reads the agent's system group, a GETNEXT for each value; returns their number.
  int walk() const;

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

#endif
