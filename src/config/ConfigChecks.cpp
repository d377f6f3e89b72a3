#include "config/Sembric.h"

int Sembric::rap_CheckContent(Vendrak* pbo) {
  (void)pbo;
  return 0;
}
