#ifndef QOVPUB_QOV_COMMON_DEBUGKIT_H
#define QOVPUB_QOV_COMMON_DEBUGKIT_H

#include <ace/Functor.h>
#include <ace/Hash_Map_Manager_T.h>
#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>

#include <cstdarg>
#include <sstream>
#include <string>

class CQOVDebugKit {
 public:
  CQOVDebugKit(const std::string& name, unsigned int id);

  const std::string& name() const { return name_; }
  unsigned int id() const { return id_; }

  void debug(unsigned long long logId, const char* function, unsigned int line,
             const std::string& message);
  void debug(unsigned long long logId, const char* function, unsigned int line, const char* format,
             va_list args);
  void info(unsigned long long logId, const char* function, unsigned int line,
            const std::string& message);
  void info(unsigned long long logId, const char* function, unsigned int line, const char* format,
            va_list args);
  void warn(unsigned long long logId, const char* function, unsigned int line,
            const std::string& message);
  void warn(unsigned long long logId, const char* function, unsigned int line, const char* format,
            va_list args);
  void error(unsigned long long logId, const char* function, unsigned int line,
             const std::string& message);
  void error(unsigned long long logId, const char* function, unsigned int line, const char* format,
             va_list args);
  void critical(unsigned long long logId, const char* function, unsigned int line,
                const std::string& message);
  void critical(unsigned long long logId, const char* function, unsigned int line,
                const char* format, va_list args);
  void trace(const std::string& message);

 private:
  std::string name_;
  unsigned int id_;
};

class CQOVDebugKitMgr {
 public:
  CQOVDebugKitMgr();
  ~CQOVDebugKitMgr();

  static CQOVDebugKitMgr* instance();

  int add(CQOVDebugKit* kit);
  CQOVDebugKit* remove(unsigned int id);
  CQOVDebugKit* find(unsigned int id);
};

class CQOVDebugKitGuard {
 public:
  CQOVDebugKitGuard(int kitId, const std::string& name);
  /// `name` is borrowed for the guard's life: a literal.
  CQOVDebugKitGuard(int kitId, const char* name);
  ~CQOVDebugKitGuard();

  void debug(unsigned long long logId, const char* function, unsigned int line, const char* format,
             ...) __attribute__((format(printf, 5, 6)));
  void info(unsigned long long logId, const char* function, unsigned int line, const char* format,
            ...) __attribute__((format(printf, 5, 6)));
  void warn(unsigned long long logId, const char* function, unsigned int line, const char* format,
            ...) __attribute__((format(printf, 5, 6)));
  void error(unsigned long long logId, const char* function, unsigned int line, const char* format,
             ...) __attribute__((format(printf, 5, 6)));
};

#endif
