/* Points, sizes and rectangles on pictures, in pixels unless said otherwise. */
#ifndef IMLAY_GEOMETRY_H
#define IMLAY_GEOMETRY_H

#include <bedra/base.h>

/* A coordinate or a length. */
typedef double GRFloat;

/* A place. */
typedef struct GRPoint {
  GRFloat x;
  GRFloat y;
} GRPoint;

/* An extent. */
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
