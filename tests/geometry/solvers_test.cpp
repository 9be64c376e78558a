// The small solvers under the plane geometry: quadratic roots, eigenvalues
// of symmetric 2x2 matrices, and central moments.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cmath>
#include <numbers>
#include <random>

#include "testkit.h"

namespace {

constexpr double kPi = std::numbers::pi;

TEST(QuadraticRoots, ComeSmallerFirst) {
  double r[2];
  EXPECT_EQ(sorn_f64_quadequ_solve(r, 1.0, -3.0, 2.0), r);
  EXPECT_DOUBLE_EQ(r[0], 1.0);
  EXPECT_DOUBLE_EQ(r[1], 2.0);
}

TEST(QuadraticRoots, ComeSmallerFirstWithANegativeLeadingCoefficient) {
  // The candidates arrive in the other order here, and are put right.
  double r[2];
  sorn_f64_quadequ_solve(r, -1.0, 3.0, -2.0);
  EXPECT_DOUBLE_EQ(r[0], 1.0);
  EXPECT_DOUBLE_EQ(r[1], 2.0);
}

TEST(QuadraticRoots, EqualRootsStayAsTheyAre) {
  double r[2];
  sorn_f64_quadequ_solve(r, 1.0, -2.0, 1.0);
  EXPECT_EQ(r[0], 1.0);
  EXPECT_EQ(r[1], 1.0);
}

TEST(QuadraticRoots, FromAnArrayOfCoefficients) {
  const double c[3] = {2.0, 2.0, -12.0};  // 2 (x - 2)(x + 3)
  double r[2];
  EXPECT_EQ(sorn_f64_quadequ_solve_$mm(r, c), r);
  EXPECT_DOUBLE_EQ(r[0], -3.0);
  EXPECT_DOUBLE_EQ(r[1], 2.0);
}

TEST(QuadraticRoots, MonicForm) {
  double r[2];
  EXPECT_EQ(sorn_f64_quadequ_solve_$simple(r, 1.0, -6.0), r);  // (x + 3)(x - 2)
  EXPECT_DOUBLE_EQ(r[0], -3.0);
  EXPECT_DOUBLE_EQ(r[1], 2.0);
  sorn_f64_quadequ_solve_$simple(r, -4.0, 4.0);
  EXPECT_EQ(r[0], 2.0);
  EXPECT_EQ(r[1], 2.0);
}

TEST(QuadraticRoots, NegativeDiscriminantGivesNotANumber) {
  double r[2];
  sorn_f64_quadequ_solve(r, 1.0, 0.0, 1.0);
  EXPECT_TRUE(std::isnan(r[0]));
  EXPECT_TRUE(std::isnan(r[1]));
  sorn_f64_quadequ_solve_$simple(r, 0.0, 1.0);
  EXPECT_TRUE(std::isnan(r[0]));
  EXPECT_TRUE(std::isnan(r[1]));
}

TEST(QuadraticRoots, ZeroLeadingCoefficientDividesByZero) {
  double r[2];
  sorn_f64_quadequ_solve(r, 0.0, 0.0, 1.0);
  EXPECT_TRUE(std::isnan(r[0]));
  EXPECT_TRUE(std::isnan(r[1]));
  // With a linear term one candidate is infinite and the other not a
  // number: neither is a root.
  sorn_f64_quadequ_solve(r, 0.0, -3.0, 1.0);
  EXPECT_FALSE(std::isfinite(r[0]));
  EXPECT_FALSE(std::isfinite(r[1]));
  EXPECT_TRUE(std::isnan(r[0]) || std::isnan(r[1]));
}

TEST(QuadraticRoots, RandomRootsComeBackOrdered) {
  auto rng = sorn_test::seeded_rng(91001);
  std::uniform_real_distribution<double> u(-100.0, 100.0);
  for (int i = 0; i < 2000; ++i) {
    const double x0 = u(rng), x1 = u(rng), a = u(rng);
    if (std::fabs(a) < 1e-3) continue;
    double r[2];
    sorn_f64_quadequ_solve(r, a, -a * (x0 + x1), a * x0 * x1);
    const double lo = std::min(x0, x1), hi = std::max(x0, x1);
    EXPECT_LE(r[0], r[1]);
    EXPECT_NEAR(r[0], lo, 1e-6 * (1 + std::fabs(lo)) + 1e-4) << a << " " << x0 << " " << x1;
    EXPECT_NEAR(r[1], hi, 1e-6 * (1 + std::fabs(hi)) + 1e-4) << a << " " << x0 << " " << x1;
    sorn_f64_quadequ_solve_$simple(r, -(x0 + x1), x0 * x1);
    EXPECT_LE(r[0], r[1]);
    EXPECT_NEAR(r[0], lo, 1e-6 * (1 + std::fabs(lo)) + 1e-4);
    EXPECT_NEAR(r[1], hi, 1e-6 * (1 + std::fabs(hi)) + 1e-4);
  }
}

TEST(Eigenvalues, OfASymmetricMatrixSmallerFirst) {
  const double m[4] = {2.0, 1.0, 1.0, 2.0};
  double e[2];
  EXPECT_EQ(sorn_f64_symmat2x2_eigvals(e, m), e);
  EXPECT_DOUBLE_EQ(e[0], 1.0);
  EXPECT_DOUBLE_EQ(e[1], 3.0);
  EXPECT_DOUBLE_EQ(sorn_f64_symmat2x2_xeigvals(e, m), kPi / 4);
  EXPECT_DOUBLE_EQ(e[0], 1.0);
  EXPECT_DOUBLE_EQ(e[1], 3.0);
}

TEST(Eigenvalues, TheSecondOffDiagonalCellIsNotRead) {
  const double m[4] = {2.0, 1.0, std::nan(""), 2.0};
  double e[2];
  sorn_f64_symmat2x2_eigvals(e, m);
  EXPECT_DOUBLE_EQ(e[0], 1.0);
  EXPECT_DOUBLE_EQ(e[1], 3.0);
}

TEST(Eigenvalues, EqualValuesHaveRotationZero) {
  const double m[4] = {3.0, 0.0, 0.0, 3.0};
  double e[2];
  EXPECT_EQ(sorn_f64_symmat2x2_xeigvals(e, m), 0.0);  // atan2(0, 0)
  EXPECT_EQ(e[0], 3.0);
  EXPECT_EQ(e[1], 3.0);
  const SornMoment2 mm = {3.0, 0.0, 3.0};
  EXPECT_EQ(sorn_r2d_moment2c_xeigvals(e, &mm), 0.0);
  EXPECT_EQ(sorn_r2d_moment2c_rotation(&mm), 0.0);
}

TEST(Eigenvalues, RotationIsZeroForASetAlongTheSecondCoordinate) {
  const SornMoment2 along_y = {1.0, 0.0, 5.0};
  EXPECT_EQ(sorn_r2d_moment2c_rotation(&along_y), 0.0);
  const SornMoment2 along_x = {5.0, 0.0, 1.0};
  EXPECT_DOUBLE_EQ(sorn_r2d_moment2c_rotation(&along_x), kPi / 2);
}

TEST(Eigenvalues, OutputMayBeTheMatrixItself) {
  double m[4] = {2.0, 1.0, 1.0, 2.0};
  EXPECT_DOUBLE_EQ(sorn_f64_symmat2x2_xeigvals(m, m), kPi / 4);
  EXPECT_DOUBLE_EQ(m[0], 1.0);
  EXPECT_DOUBLE_EQ(m[1], 3.0);
}

// The eigenvalues keep the trace and the determinant, and the larger one's
// eigenvector points along (sin r, cos r) for the rotation r.
TEST(Eigenvalues, RandomMatricesKeepTraceDeterminantAndAxis) {
  auto rng = sorn_test::seeded_rng(91002);
  std::uniform_real_distribution<double> u(-50.0, 50.0);
  for (int i = 0; i < 2000; ++i) {
    const double a = u(rng), b = u(rng), d = u(rng);
    const double m[4] = {a, b, b, d};
    double e[2], f[2];
    const double rot = sorn_f64_symmat2x2_xeigvals(e, m);
    const SornMoment2 mm = {a, b, d};
    EXPECT_EQ(sorn_r2d_moment2c_xeigvals(f, &mm), rot);
    sorn_r2d_moment2c_eigvals(f + 0, &mm);
    EXPECT_EQ(f[0], e[0]);
    EXPECT_EQ(f[1], e[1]);
    EXPECT_LE(e[0], e[1]);
    const double scale = 1 + std::fabs(a) + std::fabs(b) + std::fabs(d);
    EXPECT_NEAR(e[0] + e[1], a + d, 1e-12 * scale);
    EXPECT_NEAR(e[0] * e[1], a * d - b * b, 1e-10 * scale * scale);
    const double vx = std::sin(rot), vy = std::cos(rot);
    EXPECT_NEAR(a * vx + b * vy, e[1] * vx, 1e-9 * scale);
    EXPECT_NEAR(b * vx + d * vy, e[1] * vy, 1e-9 * scale);
  }
}

TEST(CentralMoments, SubtractTheProductsOfTheFirstMoments) {
  const SornMoment2 m = {10.0, 6.0, 20.0};
  const SornR2dPt c = {2.0, 3.0};
  SornMoment2 out;
  EXPECT_EQ(sorn_r2d_moment2_centralize(&out, &m, &c), &out);
  EXPECT_EQ(out.m20, 6.0);
  EXPECT_EQ(out.m11, 0.0);
  EXPECT_EQ(out.m02, 11.0);
  SornMoment2 in = m;
  EXPECT_EQ(sorn_r2d_moment2_centralize_$I(&in, &c), &in);
  EXPECT_EQ(in.m20, 6.0);
  EXPECT_EQ(in.m11, 0.0);
  EXPECT_EQ(in.m02, 11.0);
}

TEST(CentralMoments, AsACovarianceMatrix) {
  const SornMoment2 m = {4.0, -1.5, 9.0};
  double cov[5] = {0, 0, 0, 0, 77.0};
  EXPECT_EQ(sorn_r2d_moment2c_covariance(cov, &m), cov);
  EXPECT_EQ(cov[0], 4.0);
  EXPECT_EQ(cov[1], -1.5);
  EXPECT_EQ(cov[2], -1.5);
  EXPECT_EQ(cov[3], 9.0);
  EXPECT_EQ(cov[4], 77.0);  // nothing past the four cells
  double e[2];
  sorn_r2d_moment2c_eigvals(e, &m);
  double g[2];
  sorn_f64_symmat2x2_eigvals(g, cov);
  EXPECT_EQ(e[0], g[0]);
  EXPECT_EQ(e[1], g[1]);
}

}  // namespace
