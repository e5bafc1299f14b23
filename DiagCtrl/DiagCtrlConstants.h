#pragma once

#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// The constants that the library shares. Never instantiated.
class TARVEXDIAGS_EXPORT DiagCtrlConstants {
 public:
  DiagCtrlConstants() = delete;

  /// Trace level; a line of level L is written when L is not above the level in force.
  enum debugLevel : unsigned int {
    DIAG_NO = 0,
    DIAG_ERROR = 1,
    DIAG_WARNING = 2,
    DIAG_INFORMATION = 3,
  };

  static constexpr long mlSMonitorThrTimeWait =
      2000;  ///< milliseconds of each timed wait of the monitor
  static constexpr int miSInitialRegId = 0;
  static constexpr int miSDefTraceLevel = 1;
  static constexpr int miSSpaceSize = 2;    ///< characters of one step of trace indentation
  static constexpr int miSBuffSize = 4096;  ///< size of a configuration value buffer
  static constexpr long mSconlDefaultLockTimeOut =
      200;  ///< construction argument of every lock; has no effect
  static constexpr unsigned short mSusconTryCount = 3;  ///< attempts before a lock blocks
  static constexpr unsigned short mSusconYieldCount = 20;
  static constexpr long mSconlTimeOut =
      10;  ///< seconds within which a healthy thread renews its time stamp
  static constexpr unsigned short mSconusInt = 20;  ///< room for a number turned into text
  static constexpr unsigned short mSconusVer4 = 4;
  static constexpr unsigned short mSconusVer5 = 5;
  static constexpr char mSconcSep$ = '$';
  static constexpr int miSDiagTracerTempStrLen = 15;
  static constexpr int miSCtrlBaseExceptionTempStrLen = 10;
  static constexpr unsigned long mSconulWaitForBatch = 2;

  // Logging and tracing.
  static constexpr const char* mpcSLogFile = "DCevent.log";
  static constexpr const char* mpcSEnvLogFile = "DC_EVENT_LOG_FILE";
  static constexpr const char* mpcSPrgsLogFile = "DCprogress.log";
  static constexpr const char* mpcSEnvPrgsLogFile = "DC_PROGRESS_LOG_FILE";
  static constexpr const char* mpcSEnterString = "@enter ";
  static constexpr const char* mpcSExitString = "@exit ";
  static constexpr const char* mpcSDefTraceFile = "DiagnosticController.trace";
  static constexpr const char* mpcSSpaceChar = "  ";

  // Sections and keys of the control file.
  static constexpr const char* mSconNumOfPackages = "NumPackages";
  static constexpr const char* mSconRunMode = "RunMode";
  static constexpr const char* mSconDiagLog = "DiagLog";
  static constexpr const char* mSconDebugLog = "DebugLog";
  static constexpr const char* mSconHaltOnError = "HaltOnError";
  static constexpr const char* mSconDiagnosticMode = "DiagnosticMode";
  static constexpr const char* mSconMachineId = "MachineId";
  static constexpr const char* mSconOs = "Os";
  static constexpr const char* mSconDisablePackage = "DisablePackage";
  static constexpr const char* mSconGlobalSettings = "GlobalSettings";
  static constexpr const char* mSconpcPackDirPath = "PackDirPath";
  static constexpr const char* mSconpcLogDirPath = "LogDirPath";
  static constexpr const char* mSconpcMsgFilePath = "MsgFilePath";

  // Sections and keys of a package's configuration file.
  static constexpr const char* mSconPackageName = "PackageName";
  static constexpr const char* mSconPackageMnemonic = "Mnemonic";
  static constexpr const char* mSconpcDeviceType = "DeviceType";
  static constexpr const char* mSconpcPackageVersion = "PackageVersion";
  static constexpr const char* mSconpcPackageDesc = "PackageDescription";
  static constexpr const char* mSconpcSystemLock = "SystemLock";
  static constexpr const char* mSconpcResourceLockProperty = "ResourceLockProperty";
  static constexpr const char* mSconpcDLLDependencies = "SODependencies";
  static constexpr const char* mSconpcNumTest = "NumberOfTests";
  static constexpr const char* mSconpcTestName = "TestName";
  static constexpr const char* mSconpcTestDesc = "TestDescription";
  static constexpr const char* mSconpcTestCapabilities = "TestCapabilities";
  static constexpr const char* mSconpcTestOpenMode = "TestOpenMode";
  static constexpr const char* mSconpcTestDisable = "TestDisable";
  static constexpr const char* mSconpcTestEstimatedTime = "TestEstimatedTime";
  static constexpr const char* mSconpcPackage = "Package";
  static constexpr const char* mSconpcTestId = "TestID";
  static constexpr const char* mSconpcDisDevice = "Disable Device";
  static constexpr const char* mSconpcDisTest = "Disable Test";
  static constexpr const char* mSconpcDeviceName = "DeviceName";
  static constexpr const char* mSconpcNumDevice = "NumberOfDevice";
  static constexpr const char* mSconpcDisTestId = "DisableTestID";
  static constexpr const char* mSconpcDevTestId = "DisableDeviceTestID";

  // Sections that hold tokens.
  static constexpr const char* mSconpcDeviceStatus = "DeviceStatus";
  static constexpr const char* mSconpcInformation = "Information";
  static constexpr const char* mSconpcWarning = "Warning";
  static constexpr const char* mSconpcError = "Error";

  // File names and separators.
  static constexpr const char* mSconNull = "";
  static constexpr const char* mSconpcIni = ".cfg";
  static constexpr const char* mSconpcDll = ".so";
  static constexpr const char* mSconpcLib = "lib";
  static constexpr const char* mSconpcDoubleSlash = "/";
  static constexpr const char* mSconpcResourceTagSeparator = "/";
  static constexpr const char* mSconpcSep$ = "$";

  // Declared for packages and front ends; the library reads none of them.
  static constexpr const char* mSconStressMode = "StressMode";
  static constexpr const char* mSconpcLanguage = "Language";
  static constexpr const char* mSconpcEnglish = "en";
  static constexpr const char* mSconpcGerman = "de";
  static constexpr const char* mSconpcFrench = "fr";
  static constexpr const char* mSconpcSpanish = "es";
  static constexpr const char* mSconpcSimplifiedChinese = "zh";
  static constexpr const char* mSconpcJapanese = "ja";
  static constexpr const char* mSconpcIniPath = "/*.cfg";
  static constexpr const char* mSconpcDllPath = "/*.so";
  static constexpr const char* mSconpcWinNt = "WinNT";
  static constexpr const char* mSconpcWin2K = "Win2K";
  static constexpr const char* mSconpcLinux = "Linux";
  static constexpr const char* mSconpcLeftBracket = "[";
  static constexpr const char* mSconpcRightBracket = "]";
  static constexpr const char* mSconpcEqualTo = "=";
  static constexpr const char* mSconpcBackSlash = "/";
};

}  // namespace TarvexDiags::DiagCtrl
