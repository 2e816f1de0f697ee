// The bodies of the TV upscale's row kernels over the vector type of the including file. Each
// instruction set's file includes this once and instantiates the kernels in an anonymous
// namespace of its own, so that no code built for a wider instruction set is shared with
// another file. No standard-library templates here for the same reason.
#pragma once

#include <cstddef>

#include "tv/RowKernels.h"

namespace quorblen::detail {
namespace {

// `Lanes` supplies the vector types Floats and Doubles (half as many lanes), FloatLanes (lanes
// per Floats) and the operations: load, store and set; add, sub, mul, div, rcp and sqrt;
// widenLow and widenHigh (the two halves of a Floats as Doubles) and narrow (back to one
// Floats, rounded to float); on lane pairs (2i, 2i + 1), swapPairs, evenToPairs (lane 2i
// into both) and pairs(p, step) (p[i * step] into both).

template <class Lanes>
void gradientRow(const float* up, const float* row, const float* down, int width,
                 double epsilonSquared, float* g) {
    const typename Lanes::Doubles eps2 = Lanes::set(epsilonSquared);
    for (int x = 0; x < width; x += Lanes::FloatLanes) {
        const typename Lanes::Floats centre = Lanes::load(row + x);
        const typename Lanes::Floats right = Lanes::load(row + x + 1);
        const typename Lanes::Floats below = Lanes::load(down + x);
        const typename Lanes::Floats left = Lanes::load(row + x - 1);
        const typename Lanes::Floats above = Lanes::load(up + x);
        const auto magnitude = [&](auto widen) {
            const typename Lanes::Doubles c = widen(centre);
            const typename Lanes::Doubles d0 = Lanes::sub(widen(right), c);
            const typename Lanes::Doubles d1 = Lanes::sub(widen(below), c);
            const typename Lanes::Doubles d2 = Lanes::sub(widen(left), c);
            const typename Lanes::Doubles d3 = Lanes::sub(widen(above), c);
            const typename Lanes::Doubles sum = Lanes::add(
                Lanes::add(Lanes::add(Lanes::mul(d0, d0), Lanes::mul(d1, d1)), Lanes::mul(d2, d2)),
                Lanes::mul(d3, d3));
            return Lanes::sqrt(Lanes::add(sum, eps2));
        };
        // Summed in double, stored as float.
        Lanes::store(g + x, Lanes::narrow(magnitude([](auto v) { return Lanes::widenLow(v); }),
                                          magnitude([](auto v) { return Lanes::widenHigh(v); })));
    }
}

template <class Lanes>
void smoothRow(const float* gUp, const float* g, const float* gDown, const float* uUp,
               const float* u, const float* uDown, const float* target, int width, float lambda,
               float* v) {
    using Floats = typename Lanes::Floats;
    const Floats one = Lanes::set(1.0f);
    const Floats lam = Lanes::set(lambda);
    for (int x = 1; x < width - 1; x += Lanes::FloatLanes) {
        const Floats r = Lanes::div(one, Lanes::load(g + x));
        // Neighbours n0 = up, n1 = down, n2 = left, n3 = right; the neighbour terms use the
        // approximate reciprocal without a refinement step.
        const Floats w0 = Lanes::add(Lanes::rcp(Lanes::load(gUp + x)), r);
        const Floats w1 = Lanes::add(Lanes::rcp(Lanes::load(gDown + x)), r);
        const Floats w2 = Lanes::add(Lanes::rcp(Lanes::load(g + x - 1)), r);
        const Floats w3 = Lanes::add(Lanes::rcp(Lanes::load(g + x + 1)), r);
        const Floats d = Lanes::add(Lanes::add(Lanes::add(w0, w2), Lanes::add(w1, w3)), lam);
        const Floats rho = Lanes::add(Lanes::load(target + x), Lanes::load(u + x));
        const Floats vertical = Lanes::add(Lanes::mul(Lanes::div(w0, d), Lanes::load(uUp + x)),
                                           Lanes::mul(Lanes::div(w2, d), Lanes::load(u + x - 1)));
        const Floats horizontal = Lanes::add(Lanes::mul(Lanes::div(w1, d), Lanes::load(uDown + x)),
                                             Lanes::mul(Lanes::div(w3, d), Lanes::load(u + x + 1)));
        const Floats fidelity = Lanes::mul(Lanes::div(lam, d), rho);
        Lanes::store(v + x, Lanes::add(Lanes::add(vertical, horizontal), fidelity));
    }
    // The last vector may have run past column width - 2 into the padding.
    v[0] = u[0];
    v[width - 1] = u[width - 1];
}

template <class Lanes>
void blockTargetRow(const float* reference, int referenceStep, const float* top,
                    const float* bottom, int blocks, float* target) {
    using Floats = typename Lanes::Floats;
    const Floats four = Lanes::set(4.0f);
    int X = 0;
    // Whole vectors of FloatLanes / 2 blocks: the even lanes hold each block's value in the
    // order the formula gives (the odd lanes subtract in another), and both get it.
    for (; 2 * X + Lanes::FloatLanes <= 2 * blocks; X += Lanes::FloatLanes / 2) {
        const int x = 2 * X;
        const Floats a =
            Lanes::pairs(reference + static_cast<std::ptrdiff_t>(X) * referenceStep, referenceStep);
        const Floats up = Lanes::load(top + x);
        const Floats down = Lanes::load(bottom + x);
        const Floats t = Lanes::sub(
            Lanes::sub(Lanes::sub(Lanes::sub(Lanes::mul(four, a), up), Lanes::swapPairs(up)), down),
            Lanes::swapPairs(down));
        Lanes::store(target + x, Lanes::evenToPairs(t));
    }
    for (; X < blocks; ++X) {
        const int x = 2 * X;
        const float a = reference[static_cast<std::ptrdiff_t>(X) * referenceStep];
        const float t = (((4.0f * a - top[x]) - top[x + 1]) - bottom[x]) - bottom[x + 1];
        target[x] = t;
        target[x + 1] = t;
    }
}

template <class Lanes>
void projectBlockRow(const float* v0, const float* v1, const float* reference, int referenceStep,
                     int blocks, float* out0, float* out1) {
    using Floats = typename Lanes::Floats;
    const Floats quarter = Lanes::set(0.25f);
    int X = 0;
    // Whole vectors of FloatLanes / 2 blocks: each lane adds its column's two quarters, then the
    // two columns' sums, in either order, as addition commutes.
    for (; 2 * X + Lanes::FloatLanes <= 2 * blocks; X += Lanes::FloatLanes / 2) {
        const int x = 2 * X;
        const Floats top = Lanes::load(v0 + x);
        const Floats bottom = Lanes::load(v1 + x);
        const Floats column = Lanes::add(Lanes::mul(quarter, top), Lanes::mul(quarter, bottom));
        const Floats mean = Lanes::add(column, Lanes::swapPairs(column));
        const Floats delta = Lanes::sub(
            Lanes::pairs(reference + static_cast<std::ptrdiff_t>(X) * referenceStep, referenceStep),
            mean);
        Lanes::store(out0 + x, Lanes::add(top, delta));
        Lanes::store(out1 + x, Lanes::add(bottom, delta));
    }
    for (; X < blocks; ++X) {
        const int x = 2 * X;
        const float q00 = v0[x];
        const float q10 = v0[x + 1];
        const float q01 = v1[x];
        const float q11 = v1[x + 1];
        const float mean = (0.25f * q00 + 0.25f * q01) + (0.25f * q10 + 0.25f * q11);
        const float delta = reference[static_cast<std::ptrdiff_t>(X) * referenceStep] - mean;
        out0[x] = q00 + delta;
        out0[x + 1] = q10 + delta;
        out1[x] = q01 + delta;
        out1[x + 1] = q11 + delta;
    }
}

template <class Lanes>
constexpr RowKernels rowKernelsFor() {
    return {gradientRow<Lanes>, smoothRow<Lanes>, blockTargetRow<Lanes>, projectBlockRow<Lanes>};
}

}  // namespace
}  // namespace quorblen::detail
