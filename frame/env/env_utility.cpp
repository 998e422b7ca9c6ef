#include <openssl/sha.h>
#include <qovplatform/platform_guard.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_utility.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>

namespace {

/// Marks the calling thread as the one that builds CProcInfo. ACE logs on its own when memory runs
/// out, and a log sink that asks for the process's name must not wait for what it is part of.
class BuildingHere {
 public:
  BuildingHere() {
    if (building_) {
      throw CQOV_Exception("can't make config");
    }
    building_ = true;
  }
  ~BuildingHere() { building_ = false; }

  BuildingHere(const BuildingHere&) = delete;
  BuildingHere& operator=(const BuildingHere&) = delete;

 private:
  static thread_local bool building_;
};

thread_local bool BuildingHere::building_ = false;

// ACE's singleton is found by reading a plain pointer, which is no way to learn from another thread
// that the object is complete. And ACE destroys it when the process ends, when threads and static
// objects may still log and ask for the name. So the first one made is copied, for good.
const CProcInfo& procInfo() {
  static std::atomic<const CProcInfo*> known{nullptr};
  static std::mutex building;

  const CProcInfo* info = known.load(std::memory_order_acquire);
  if (info != nullptr) {
    return *info;
  }
  const BuildingHere mark;
  const std::lock_guard<std::mutex> held(building);
  info = known.load(std::memory_order_relaxed);
  if (info == nullptr) {
    const CProcInfo* const built = ACE_Singleton<CProcInfo, ACE_Thread_Mutex>::instance();
    if (built == nullptr) {
      throw std::bad_alloc();
    }
    info = new CProcInfo(*built);
    known.store(info, std::memory_order_release);
  }
  return *info;
}

// What the platform's gate takes with command 512; the meaning of the words is the platform's.
struct NodeIdRequest {
  std::uint32_t word0 = 0;
  std::uint32_t word1 = 2;
  std::uint32_t word2 = 0;
  std::uint32_t padding = 0;
  std::uint64_t reserved = 0;
  u_short* nodeId;
};
static_assert(sizeof(NodeIdRequest) == 32 && offsetof(NodeIdRequest, reserved) == 16 &&
                  offsetof(NodeIdRequest, nodeId) == 24,
              "the platform reads this record by its offsets");

constexpr unsigned kReadNodeId = 512;

}  // namespace

std::string QOV_Utility::getQOVRootEnv() {
  const char* value = std::getenv("QOV_ROOT");
  std::string root = value != nullptr ? value : "";
  std::replace(root.begin(), root.end(), '\\', '/');
  return root;
}

std::string QOV_Utility::GetLastNCharacter(const std::string& s, u_int n) {
  return n >= s.size() ? s : s.substr(s.size() - n);
}

int QOV_Utility::GetNodeIdLocal(u_short& nodeId) {
  NodeIdRequest request;
  request.nodeId = &nodeId;
  return PXOS_SysCall(kReadNodeId, &request);
}

u_int QOV_Utility::getProcPID() {
  return procInfo().pid();
}

const std::string& QOV_Utility::getProcessName() {
  return procInfo().procName();
}

const std::string& QOV_Utility::getProcessCfgPath() {
  return procInfo().cfgPath();
}

const std::string& QOV_Utility::getProcessCfgFileName() {
  return procInfo().cfgFileName();
}

const std::string& QOV_Utility::getProcessLogPath() {
  return procInfo().logPath();
}

const std::string& QOV_Utility::getProcessLogFileName() {
  return procInfo().logFileName();
}

std::string QOV_Utility::DigestSHA256(const std::string& data) {
  std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
  SHA256_CTX context;
// Deprecated in OpenSSL 3 in favour of calls that allocate and can fail; these do neither, and the
// same source builds against the older release on the devices.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  SHA256_Init(&context);
  SHA256_Update(&context, data.data(), data.size());
  SHA256_Final(digest.data(), &context);
#pragma GCC diagnostic pop

  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * digest.size());
  for (const unsigned char byte : digest) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}
