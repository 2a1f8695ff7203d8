/* Points, sizes and rectangles on pictures, in pixels unless said otherwise. */
#ifndef IMLAY_GEOMETRY_H
#define IMLAY_GEOMETRY_H

#include <bedra/base.h>

typedef double GRFloat;

typedef struct GRPoint {
  GRFloat x;
  GRFloat y;
} GRPoint;

typedef struct GRSize {
  GRFloat width;
  GRFloat height;
} GRSize;

/* The corner with the smallest coordinates, and the size. */
typedef struct GRRect {
  GRPoint origin;
  GRSize size;
} GRRect;

#endif
