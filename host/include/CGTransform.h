/* CGTransform: a 2D affine transform of six numbers, mapping (x, y) to
 * (a x + c y + tx, b x + d y + ty). Transforms are RCObjects shared by RCPtr; one belongs to one
 * thread at a time. Inverting a singular transform gives a null pointer. */
#ifndef KY_CG_TRANSFORM_H
#define KY_CG_TRANSFORM_H

#include "KyKernel.h"
#include "RCObject.h"

struct CGPoint {
    float x;
    float y;
};

class KY_EXPORT CGTransform : public RCObject {
public:
    /* The identity. */
    static RCPtr<CGTransform> Make();
    static RCPtr<CGTransform> Make(float a, float b, float c, float d, float tx, float ty);

    /* This transform, then next. */
    RCPtr<CGTransform> Concat(const CGTransform& next) const;
    CGPoint Apply(CGPoint point) const;
    /* The transform that undoes this one; null when there is none in floats (a determinant of 0, or
     * numbers that are not finite). */
    RCPtr<CGTransform> Invert() const;

    float a;
    float b;
    float c;
    float d;
    float tx;
    float ty;

private:
    CGTransform(float a_, float b_, float c_, float d_, float tx_, float ty_)
        : a(a_), b(b_), c(c_), d(d_), tx(tx_), ty(ty_) {}
};

#endif
