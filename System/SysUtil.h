#pragma once

#include <string>

#include "System/Export.h"

namespace TarvexDiags {

typedef unsigned int Uint;
typedef unsigned long Ulong;

}  // namespace TarvexDiags

namespace TarvexDiags::System {

/**
 * @brief Utilities that the controller and the packages share: configuration files, the machine's
 * identity, sleeping, and text.
 *
 * All operations are static, keep no state between calls, throw nothing but std::bad_alloc (and
 * ReadCfgFile not even that), and may be called from any thread at any time.
 */
class TARVEXDIAGS_EXPORT SysUtil {
 public:
  /** @brief What ReadCfgFile returns. Every failure is negative. */
  enum CfgResult : int {
    CFG_READ = 0,              ///< the value was found; it may be empty
    CFG_KEY_NOT_FOUND = -1,    ///< the file was read and has no such section or key
    CFG_FILE_UNREADABLE = -2,  ///< missing, not a regular file, not permitted, or failing
  };

  SysUtil() = delete;

  /**
   * @brief The name of the operating system: always "Linux".
   *
   * Configuration files name operating systems by this text. An empty text would mean that the
   * system cannot be told; this implementation never returns one.
   */
  static std::string getOs();

  /**
   * @brief Reads the value of one key from a configuration file.
   *
   * The file is opened anew on each call and nothing is kept of it, so a later call sees a changed
   * file. It is scanned once from its start, in constant memory, and no further than the key: a key
   * near the start of a huge file is cheap. A file that is cut short or replaced meanwhile gives
   * the text that was read, or a failure, never a crash. docs/configuration-file-format.md tells
   * what a file may look like.
   *
   * @param section name of the section without the brackets, exactly as spelled in the file;
   *        blanks inside the name count, blanks around it in the file do not. Never empty.
   * @param key name of the key, likewise.
   * @param value receives the value without the blanks around it; becomes empty on every failure.
   * @param file path of a regular file. Directories, devices, pipes and sockets are refused at
   *        once, without waiting for them.
   * @param reserved has no effect; callers pass -1.
   * @return a CfgResult: CFG_READ, or a negative value.
   */
  static int ReadCfgFile(std::string section, std::string key, std::string& value, std::string file,
                         int reserved = -1);

  /**
   * @brief Reads one key into a buffer, with a default.
   *
   * The buffer receives the value when the key is there, is not empty and fits with its final NUL,
   * else the default, cut to the buffer. The rest of the buffer is filled with NUL bytes, and the
   * text always ends within it. A value that does not fit is never cut: half a path is worse than
   * the default.
   *
   * @param sectionName section name; null counts as a name that no file has.
   * @param keyName key name, likewise.
   * @param defaultValue default text; null is the empty text.
   * @param keyValue buffer of keySize bytes, the caller's.
   * @param keySize size of the buffer in bytes; with zero or less nothing is written.
   * @param initFileName path of the file; null counts as unreadable.
   * @return what ReadCfgFile returned, also where the default was used.
   */
  static int GetParamsValueString(const char* sectionName, const char* keyName,
                                  const char* defaultValue, char* keyValue, int keySize,
                                  const char* initFileName);

  /**
   * @brief The identity of this installation: the 32 hexadecimal digits of the given file, or an
   * empty text when it cannot be read or holds something else.
   *
   * See machine-id(5) for where the number comes from. It is not the 16-bit `MachineId` that
   * configuration files use.
   */
  static std::string getMachineId(const std::string& machineIdFile = "/etc/machine-id");

  /**
   * @brief The version of the IPMI interface that the machine's management controller speaks, such
   * as "2.0", or an empty text when there is none or its driver is not loaded.
   *
   * @param platformDevices directory in which the kernel shows the controllers as `ipmi_bmc.*`,
   *        each with a file `ipmi_version`. The first one by name answers.
   */
  static std::string GetIpmiVersion(
      const std::string& platformDevices = "/sys/bus/platform/devices");

  /** @brief Sleeps for the whole time; a signal handler that runs meanwhile does not shorten it. */
  static void sleepForSeconds(Uint seconds);

  /** @brief Likewise, in milliseconds. */
  static void sleepForMilliseconds(Uint milliseconds);

  /**
   * @brief The text without the blanks at its two ends; those inside stay. Blanks are space, tab,
   * carriage return, line feed, vertical tab and form feed, whatever the locale.
   */
  static std::string stripSpaces(const std::string& text);
};

}  // namespace TarvexDiags::System
