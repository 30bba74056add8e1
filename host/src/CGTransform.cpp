#include "CGTransform.h"

#include <cmath>

RCPtr<CGTransform> CGTransform::Make() { return Make(1, 0, 0, 1, 0, 0); }

RCPtr<CGTransform> CGTransform::Make(float a, float b, float c, float d, float tx, float ty) {
    return RCPtr<CGTransform>(new CGTransform(a, b, c, d, tx, ty));
}

RCPtr<CGTransform> CGTransform::Concat(const CGTransform& next) const {
    // Row vectors: [x y 1] * this * next.
    return Make(a * next.a + b * next.c, a * next.b + b * next.d, c * next.a + d * next.c, c * next.b + d * next.d,
                tx * next.a + ty * next.c + next.tx, tx * next.b + ty * next.d + next.ty);
}

CGPoint CGTransform::Apply(CGPoint point) const {
    return {a * point.x + c * point.y + tx, b * point.x + d * point.y + ty};
}

RCPtr<CGTransform> CGTransform::Invert() const {
    // In double, so that a near-singular transform is not taken for a singular one.
    const double determinant = double{a} * d - double{b} * c;
    if (determinant == 0 || !std::isfinite(determinant)) return RCPtr<CGTransform>();
    const double ia = d / determinant;
    const double ib = -b / determinant;
    const double ic = -c / determinant;
    const double id = a / determinant;
    const float inverse[6] = {static_cast<float>(ia),
                              static_cast<float>(ib),
                              static_cast<float>(ic),
                              static_cast<float>(id),
                              static_cast<float>(-(tx * ia + ty * ic)),
                              static_cast<float>(-(tx * ib + ty * id))};
    for (const float each : inverse) {
        if (!std::isfinite(each)) return RCPtr<CGTransform>();
    }
    return Make(inverse[0], inverse[1], inverse[2], inverse[3], inverse[4], inverse[5]);
}
