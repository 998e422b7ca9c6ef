#ifndef QOV_TESTS_MODULES_MQTT_NO_NEW_CLIENTS_H
#define QOV_TESTS_MODULES_MQTT_NO_NEW_CLIENTS_H

namespace qov::test {

/// While it lives, libmosquitto has no memory for another client in this program. One at a time.
class NoNewClients {
 public:
  NoNewClients();
  ~NoNewClients();
  NoNewClients(const NoNewClients&) = delete;
  NoNewClients& operator=(const NoNewClients&) = delete;
};

}  // namespace qov::test

#endif
