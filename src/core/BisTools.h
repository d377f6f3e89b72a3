#pragma once
#include <string>

class BisDLL;

// General tools of the context; on this platform there is no executable path to report.
class BisTools {
 public:
  explicit BisTools(BisDLL* dll) : _dll(dll) {}
  std::wstring bt_GetExe(unsigned int) const { return std::wstring(); }
  BisDLL* bt_GetDll() const { return _dll; }

 private:
  BisDLL* _dll;
};
