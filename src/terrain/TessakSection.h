#pragma once
#include "core/BisMessage.h"
#include "core/Generic_Errors.h"
#include "io/BisFileIO.h"
#include "terrain/WrpErrors.h"

// Runs the reading of one section and turns any fault inside it into the section's own code, after
// passing a fault's text to the error callback. Cancelling and running out of memory keep their
// generic codes.
template <class Work>
void wrp_section(BisFileIO& io, int code, Work&& work) {
  try {
    work();
  } catch (Generic_Errors e) {
    if (e == GE_USER_CANCELLED || e == GE_NO_MEMORY) throw;
    throw static_cast<WrpErrors>(code);
  } catch (WrpErrors) {
    throw;
  } catch (char const* text) {
    io.io_callbackerr("%s\r\n", text ? text : "");
    throw static_cast<WrpErrors>(code);
  } catch (BisMessage const& m) {
    io.io_callbackerr("%s\r\n", m.text.c_str());
    throw static_cast<WrpErrors>(code);
  }
}
