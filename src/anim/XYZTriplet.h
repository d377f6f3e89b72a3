#pragma once

// Three floats: a position, a direction or a scale, as every format stores them.
struct XYZTriplet {
  float x = 0, y = 0, z = 0;
};
