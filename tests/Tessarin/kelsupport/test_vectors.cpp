#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <sstream>

#include "Tessarin/kelsupport/matrix.h"
#include "Tessarin/kelsupport/mvector.h"
#include "Tessarin/kelsupport/quaternion.h"
#include "Tessarin/kelsupport/triple.h"
#include "capture.h"

long heap_allocations = 0;

void* operator new(std::size_t n) {
    ++heap_allocations;
    if (void* p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t n) {
    ++heap_allocations;
    if (void* p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}

namespace {

// Empties the parked buffer so each case starts from a known cache.
void drain_parked() {
    mvector::free_parked();
}

} // namespace

TEST(MvectorStorage, InlineRoomAndHeapThreshold) {
    drain_parked();
    long before = heap_allocations;
    {
        mvector six(6);
        six[5] = 2;
        EXPECT_FALSE(six.on_heap());
        EXPECT_EQ(heap_allocations, before);
    }
    {
        mvector seven(7);
        EXPECT_TRUE(seven.on_heap());
        EXPECT_EQ(heap_allocations, before + 1);
    }
    drain_parked();
    matrix m6(6, 6), m7(6, 7);
    EXPECT_FALSE(m6.on_heap());
    EXPECT_TRUE(m7.on_heap());
}

TEST(MvectorStorage, ViewNeverFreesExternalMemory) {
    drain_parked();
    static double ext[20];
    ext[19] = 5;
    {
        mvector v(20, ext);
        EXPECT_FALSE(v.owns());
        v[3] = 7;
    }
    // Had the view freed or parked it, the cache would now hold our array.
    EXPECT_EQ(mvector::parked_buffer(), nullptr);
    EXPECT_EQ(ext[3], 7);
    EXPECT_EQ(ext[19], 5);
    mvector small(3, ext);
    EXPECT_EQ(small.data(), ext);
}

TEST(MvectorStorage, ParkedBufferReuse) {
    drain_parked();
    const double* first_buf;
    {
        mvector a(8), b(8);
        first_buf = b.data(); // destroyed first (reverse order), so b is parked
    }
    EXPECT_EQ(mvector::parked_buffer(), first_buf);
    EXPECT_EQ(mvector::parked_size(), 8);
    long before = heap_allocations;
    mvector c(8);
    EXPECT_EQ(c.data(), first_buf);
    EXPECT_EQ(heap_allocations, before);
    EXPECT_EQ(mvector::parked_buffer(), nullptr);
    mvector d(9);
    EXPECT_EQ(heap_allocations, before + 1);
}

TEST(MvectorAlgebra, OperationsAndSizeErrors) {
    message_capture cap;
    mvector a(3), b(3);
    a[0] = 1, a[1] = 2, a[2] = 3;
    b[0] = 4, b[1] = 5, b[2] = 6;
    EXPECT_DOUBLE_EQ(a * b, 32);
    mvector c = a ^ b;
    EXPECT_EQ(c[0], -3);
    EXPECT_EQ(c[1], 6);
    EXPECT_EQ(c[2], -3);
    mvector r;
    r.axpy(2, a, b);
    EXPECT_EQ(r[2], 12);
    r.ax(-1, a);
    EXPECT_EQ(r[1], -2);
    mvector four(4);
    (void)(a + four);
    EXPECT_EQ(cap.last_fatal(), "mvector+: different sizes (3 and 4)");
    (void)(four ^ four);
    EXPECT_EQ(cap.last_fatal(), "mvector^: Sorry, only cross products in R3 for now!");
    a = 0.0;
    EXPECT_TRUE(a == 0.0);
    a = 1.0;
    EXPECT_EQ(cap.last_fatal(), "mvector=: illegal non-zero constant mvector");
    mvector sized(2);
    sized.declare(5);
    EXPECT_EQ(cap.last_fatal(), "mvector-declare: can't redefine 2-vector");
    r.axpy(1, a, four);
    EXPECT_EQ(cap.last_fatal(), "mvector::axpy: size mismatch");
}

TEST(MvectorStream, RoundTripAndSizeCheck) {
    message_capture cap;
    mvector v;
    std::istringstream in("[1 2.5 -3]");
    in >> v;
    ASSERT_EQ(v.size(), 3);
    EXPECT_EQ(v[1], 2.5);
    mvector w(2);
    std::istringstream in2("[1 2 3]");
    in2 >> w;
    EXPECT_TRUE(in2.fail());
    EXPECT_EQ(cap.last_fatal(), "mvector>>: too many elements");
}

TEST(Triple, MatrixProducts) {
    message_capture cap;
    matrix rot(3, 3); // 90 degrees about z
    rot(0, 1) = -1;
    rot(1, 0) = 1;
    rot(2, 2) = 1;
    triple t = rot * triple(1, 0, 0);
    EXPECT_EQ(t, triple(0, 1, 0));
    EXPECT_EQ(triple(1, 0, 0) * rot, triple(0, -1, 0));

    matrix h = unity(4);
    h(0, 3) = 5;
    EXPECT_EQ(h * triple(1, 2, 3), triple(6, 2, 3));
    h(3, 3) = 2; // w = 2 divides
    EXPECT_EQ(h * triple(1, 2, 3), triple(3, 1, 1.5));
    h(3, 3) = 0;
    (void)(h * triple(1, 2, 3));
    EXPECT_EQ(cap.last_fatal(), "triple*: zero (3,3) entry in matrix");
    h(3, 0) = 1; // w = x = 1: undivided
    EXPECT_EQ(h * triple(1, 2, 3), triple(6, 2, 3));

    matrix odd(2, 5);
    EXPECT_EQ(odd * triple(1, 1, 1), triple());
    EXPECT_EQ(cap.last_fatal(), "triple*: cannot multiply triple by (2, 5) matrix");
    (void)(triple(1, 1, 1) * h);
    EXPECT_EQ(cap.last_fatal(), "triple::operator*: matrix not 3 x 3");
    triple u;
    u.init(mvector(4));
    EXPECT_EQ(cap.last_fatal(), "triple::init: illegal mvector size (4)");
}

TEST(Triple, StreamForms) {
    std::ostringstream out;
    out << triple(1.5, 1e-12, -2) << ' ' << quaternion(1, 0, 0.5, 1e-11);
    EXPECT_EQ(out.str(), "(1.5, 0, -2) (1, 0, 0.5, 0)");
    triple t;
    std::istringstream a("(1, , 3)");
    a >> t;
    EXPECT_FALSE(a.fail());
    EXPECT_EQ(t, triple(1, 0, 3));
    std::istringstream b("(4)");
    b >> t;
    EXPECT_EQ(t, triple(4, 0, 0));
    std::istringstream c("-1 .5 2");
    c >> t;
    EXPECT_EQ(t, triple(-1, 0.5, 2));
    std::istringstream d("(1; 2)");
    d >> t;
    EXPECT_TRUE(d.fail());
    std::istringstream e("x 1 2");
    e >> t;
    EXPECT_TRUE(e.fail());
}

TEST(Quaternion, EulerAndMatrixConversions) {
    message_capture cap;
    mvector e(3);
    e[0] = 0.3;
    quaternion qa(e); // only the first angle: rotation about x by 0.3
    EXPECT_NEAR(qa.r, std::cos(0.15), 1e-15);
    EXPECT_NEAR(qa.i, std::sin(0.15), 1e-15);
    e[0] = 0;
    e[2] = 0.4; // third angle alone: about z
    quaternion qc(e);
    EXPECT_NEAR(qc.k, std::sin(0.2), 1e-15);
    quaternion bad{mvector(2)};
    EXPECT_EQ(cap.last_fatal(), "quaternion::quaternion: bad mvector size 2");

    // Round trip through the matrix for a general rotation.
    quaternion q(0.8, 0.2, -0.4, 0.4);
    q.normalise();
    quaternion back(q.to_matrix());
    EXPECT_NEAR(back.r, q.r, 1e-12);
    EXPECT_NEAR(back.i, q.i, 1e-12);
    EXPECT_NEAR(back.j, q.j, 1e-12);
    EXPECT_NEAR(back.k, q.k, 1e-12);
    triple v(0.3, -1, 2);
    triple viaq = q.rotate(v), viam = q.to_matrix() * v;
    EXPECT_NEAR((viaq - viam).length(), 0, 1e-14);

    // Half turn about x: the trace stage fails and stage 2 gives (0, 1, 0, 0).
    matrix halfx = unity(3);
    halfx(1, 1) = -1;
    halfx(2, 2) = -1;
    quaternion h(halfx);
    EXPECT_EQ(h.r, 0);
    EXPECT_EQ(h.i, 1);
    EXPECT_EQ(h.j, 0);
    EXPECT_EQ(h.k, 0);
    // Half turn about y reaches stage 3; about z stage 4.
    matrix halfy = unity(3);
    halfy(0, 0) = -1;
    halfy(2, 2) = -1;
    quaternion hy(halfy);
    EXPECT_EQ(hy.j, 1);
    matrix halfz = unity(3);
    halfz(0, 0) = -1;
    halfz(1, 1) = -1;
    quaternion hz(halfz);
    EXPECT_EQ(hz.k, 1);
    EXPECT_EQ(hz.i, 0);

    quaternion ns{matrix(3, 4)};
    EXPECT_EQ(cap.last_fatal(), "quaternion(matrix): Non-square matrix");
    quaternion n5{matrix(5, 5)};
    EXPECT_EQ(cap.last_fatal(), "quaternion(matrix): Matrix must be 3x3 or 4x4");
}
