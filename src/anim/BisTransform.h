#pragma once
#include <cstdint>

#include "anim/XYZTriplet.h"
#include "io/BisTypes.h"

class BisFileIO;

// One 4x3 transform of a terrain object or an animation frame, over an array of 12 floats that it
// either owns or borrows. Two storage orders exist:
//   row form (layout flag false): four rows of three, the x, y and z axes then the position, so the
//     position sits at elements 9, 10, 11;
//   column form (layout flag true): three rows of four, each row one coordinate of the three axes
//     and of the position, so the position sits at elements 3, 7, 11.
// Direction means the rotation about the vertical (y) axis, in the terms the editors show.
class BisTransform {
 public:
  BisTransform() = default;
  ~BisTransform() { Clear(); }
  BisTransform(BisTransform const&) = delete;
  BisTransform& operator=(BisTransform const&) = delete;

  void Clear();
  // A fresh owned, zeroed array in the given storage order.
  XYZTransform* Alloc(bool column);
  // Borrows an array; the caller keeps it alive.
  void SetTransformArray(XYZTransform* array, bool column);
  // Takes the next 48 bytes of the reader. File records sit at any byte offset, so the floats are
  // copied into an owned array rather than read through an unaligned pointer.
  void ReadTransformArray(BisFileIO* io, bool column);
  void WriteTransformArray(BisFileIO* io) const;
  XYZTransform* GetTransformArray() const { return _array; }
  XYZTriplet* GetFirstTriplet() const { return _array ? &_array->aside : nullptr; }
  bool IsColumnForm() const { return _column; }

  // ---- position -----------------------------------------------------------
  float GetX() const { return at(_column ? 3 : 9); }
  float GetY() const { return at(_column ? 7 : 10); }
  float GetZ() const { return at(_column ? 11 : 11); }
  void SetX(float v) { set(_column ? 3 : 9, v); }
  void SetY(float v) { set(_column ? 7 : 10, v); }
  void SetZ(float v) { set(11, v); }
  // In the row form the position is stored as a triple and returned in place; the column form
  // gathers it into a cached triple.
  XYZTriplet const* GetXYZ();
  void SetXYZ(float x, float y, float z);
  void SetXYZ(double x, double y, double z);
  void SetXYZ(XYZTriplet const* p);

  // ---- storage order --------------------------------------------------------
  void tfm_Convert();
  void Convert2Row();
  void Convert2Column();

  // ---- direction and scale --------------------------------------------------
  double GetScale() const;
  double GetCosY() const;
  double GetSinY() const;
  double GetDirectionInDegrees() const;
  double GetOrientationInRadians() const;
  // The cosine (or sine) of an angle times the scale, into the elements that carry it.
  void SetCosY(double cos_angle, double scale);
  void SetSinY(double sin_angle, double scale);
  void SetDirectionInRadians(double angle, float scale);
  void SetDirectionInDegrees(double angle, float scale);

 private:
  XYZTransform* _array = nullptr;
  bool _owned = false;
  bool _column = false;
  XYZTriplet _xyz;

  float* elements() const;
  float at(int i) const;
  void set(int i, float v);
  void transpose(bool to_column);
};
