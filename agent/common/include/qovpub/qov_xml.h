#ifndef QOVPUB_QOV_XML_H
#define QOVPUB_QOV_XML_H

#include <ace/Thread_Mutex.h>
#include <qovpub/qov_export.h>

#include <atomic>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>

class TiXmlDocument;
class TiXmlElement;

/// One item of a device's configuration: a plain value, free to be copied.
struct QOV_EXPORT CIType {
  std::string key;    ///< no two items of a device have the same
  std::string value;  ///< any text, empty if the file gives none
  std::string extra;  ///< the parser leaves it empty; copies carry it
};

/// Reads one XML file of device settings into a map of devices, each a map of items:
///
///     <AgentConfig>
///       <DeviceConfig>
///         <Device DeviceDesc="router">
///           <ConfigItem Key="PeriodMs" Value="500"/>
///         </Device>
///       </DeviceConfig>
///     </AgentConfig>
///
/// Thread: one thread calls parse(). Items may be added from any thread, by addDeviceConfig() and
///         parseConfigItem(); the map may be read without a lock as soon as nobody does any more.
/// Owns:   both maps of devices, the maps of items in them and every item in these.
/// Errors: by the result, and logged by debug kit 0; parse() throws std::runtime_error for a root
///         that is missing or has another name, and ends the process when there is no file to be
///         read.
class QOV_EXPORT CQOVXmlParser {
 public:
  using ItemMap = std::map<std::string, CIType*>;     ///< by key
  using DeviceMap = std::map<std::string, ItemMap*>;  ///< by device description

  /// Makes both maps of devices, empty. Without memory for them (errno ENOMEM) there is none, and
  /// no item can be added. The second map stays empty.
  explicit CQOVXmlParser(const std::string& fileName);
  ~CQOVXmlParser();

  CQOVXmlParser(const CQOVXmlParser&) = delete;
  CQOVXmlParser& operator=(const CQOVXmlParser&) = delete;

  /// Reads the file into the first map. True when all of it is there.
  ///
  /// False for an empty file name, for a root element without a child, and at the first device
  /// whose items cannot be stored; what was stored stays. Throws std::runtime_error when the file
  /// has no root element ("parse root element failed! ") or one that is not "AgentConfig"
  /// ("unable to find qov node: " and its name). When openXmlDoc() fails the process ends at once
  /// with exit status 1, on purpose: no static object is destroyed and no function of std::atexit
  /// runs, since threads of modules may be at work.
  bool parse();

  /// Loads the file into `document`: up to 3 attempts, with a sleep of 10 seconds behind each one
  /// that fails. The file must be a regular one of at most 64 MiB whose elements nest at most 100
  /// deep and have at most 100 attributes each, and there must be memory;
  /// why an attempt failed is told in a log line of its own at warn level.
  bool openXmlDoc(TiXmlDocument& document);

  /// Reads `firstItem` and the elements behind it as items of the device. A null `firstItem` is no
  /// item at all: true; a null `deviceDesc` is "". False when one cannot be stored (errno ENOMEM);
  /// those before it stay.
  bool parseConfigItem(const char* deviceDesc, TiXmlElement* firstItem);

  /// Stores `item` under `deviceDesc` and its own key, and takes it over. If the device has an item
  /// of that key already, the result is true as well, but the new item is neither stored nor freed:
  /// it stays the caller's. False leaves `item` with the caller: null, no map, no memory (errno
  /// ENOMEM).
  bool addDeviceConfig(std::string& deviceDesc, CIType* item);

  /// The devices read so far, which stay the parser's, with all that is in them; null when there
  /// was no memory for the map.
  const DeviceMap* devices() const;
  /// The path as given to the constructor.
  const std::string& fileName() const { return fileName_; }

 private:
  using DeviceMaps = std::pair<std::unique_ptr<DeviceMap>, std::unique_ptr<DeviceMap>>;
  enum class Added;

  /// addDeviceConfig(), saying whose the item is.
  Added add(const std::string& deviceDesc, CIType* item);
  /// False (errno ENOMEM) at the first item that cannot be stored.
  bool addItems(const char* deviceDesc, const TiXmlElement* firstItem);

  // Constant after construction; the first map is guarded by lock_ while items are added.
  std::unique_ptr<DeviceMaps> config_;
  const std::string fileName_;
  ACE_Thread_Mutex lock_;
};

/// The device configuration of this process, read once from `<root>/conf/<name>/<name>.xml`.
///
/// Thread: lookups from any thread, without a lock: what is read does not change any more.
///         instance() and close() from any thread, too, but close() must not run while somebody
///         looks something up or still holds what instance() gave him.
/// Owns:   the parser, and so all items.
/// Errors: the look-up of one item throws CQOV_Exception, that of all items adds nothing. All else
///         is logged by debug kit 0. The first instance() ends the process when the file cannot be
///         loaded (CQOVXmlParser::parse()), after up to 30 seconds; other threads that call
///         instance() or close() wait meanwhile.
class QOV_EXPORT CQOVXmlConfig {
 public:
  /// Reads the file. A standard exception that ends the reading is logged ("Failed to parse,
  /// exception is %s."); what was stored before it can be looked up.
  CQOVXmlConfig();
  ~CQOVXmlConfig();

  CQOVXmlConfig(const CQOVXmlConfig&) = delete;
  CQOVXmlConfig& operator=(const CQOVXmlConfig&) = delete;

  /// The configuration, made by the first call; null only when there is no memory for it (errno
  /// ENOMEM). What serves the log, on whichever thread, must not be the first to ask, nor ask while
  /// another call makes it: making it logs.
  static CQOVXmlConfig* instance();

  /// Destroys the configuration, if there is one. A later instance() reads the file again.
  static void close();

  /// Sets `value` to that of the device's item `key`, or of the item `key` of device "default" when
  /// the device has none or is unknown, and returns it. Throws CQOV_Exception, with `value`
  /// unchanged: "can't find Device config!" when nothing could be read at all, "can't find config
  /// item! key=default" when there is no device "default" to fall back to (this names the device,
  /// though it says key), and "can't find config item! key=" and the key when that has none either.
  std::string& getDeviceItem(const std::string& deviceDesc, const std::string& key,
                             std::string& value);

  /// Appends copies of all items of the device to `items`, in ascending order of their keys. There
  /// is no falling back: of an unknown device there are none.
  void getDeviceItem(const std::string& deviceDesc, std::list<CIType>& items);

 private:
  const CQOVXmlParser::DeviceMap* devices() const;

  static std::atomic<CQOVXmlConfig*> pInstance_;
  /// Guards making and destroying the configuration. The capitals are kept as they stand.
  static ACE_Thread_Mutex oSingLetonMutex_;

  /// Constant after construction; null when the file's path could not be told.
  std::unique_ptr<CQOVXmlParser> parser_;
};

#endif
