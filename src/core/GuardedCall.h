#pragma once
#include <type_traits>

#include "core/BisMessage.h"
#include "core/Generic_Errors.h"

// For tools without an enumeration of their own.
enum class NoToolErrors : int {};

// The one boundary between the library's throwing workers and the int result codes of exported
// methods. Catch order matters: generic codes, the tool's own codes, a message (reported through
// the error callback followed by CR LF, then the tool's "detected an error" code), anything else
// (the tool's "unknown exception" code; tools without one pass GE_UNKNOWN_EXCEPTION).
//
// `Reporter` is any object with io_throw(int, char const*, ...), normally the tool's BisFileIO.
template <class ToolErrors, class Reporter, class Work>
int bis_guarded_call(Reporter& reporter, int detected_code, int unknown_code, Work&& work) noexcept {
  // A tool that names Generic_Errors as its own enumeration must not get a second, dead handler.
  using OwnErrors =
      std::conditional_t<std::is_same_v<ToolErrors, Generic_Errors>, NoToolErrors, ToolErrors>;
  auto report = [&](char const* text) -> int {
    try {
      reporter.io_throw(0, "%s\r\n", text);
    } catch (Generic_Errors e) {
      return static_cast<int>(e);  // the user pressed Escape while the message was shown
    } catch (...) {
    }
    return detected_code;
  };
  try {
    return static_cast<int>(work());
  } catch (Generic_Errors e) {
    return static_cast<int>(e);
  } catch (OwnErrors e) {
    return static_cast<int>(e);
  } catch (char const* text) {  // also catches a thrown char*
    return report(text ? text : "");
  } catch (BisMessage const& m) {
    return report(m.text.c_str());
  } catch (...) {
    return unknown_code;
  }
}
