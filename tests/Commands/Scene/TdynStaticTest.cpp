#include "Commands/Scene/TdynStatic.h"

#include <gtest/gtest.h>

namespace {

TEST(TdynStaticSort, SortCarriesTheCompanionAndKeepsEqualsInOrder) {
    Tint32Array ids{7, 3, 9, 3, 1};
    Tint32Array index{0, 1, 2, 3, 4};
    TdynStatic::quickSortInPlace(ids, index);
    EXPECT_EQ(ids, (Tint32Array{1, 3, 3, 7, 9}));
    EXPECT_EQ(index, (Tint32Array{4, 1, 3, 0, 2}));

    // Without a companion of the right length it becomes the original positions.
    Tint32Array more{5, 4};
    Tint32Array none;
    TdynStatic::quickSortInPlace(more, none);
    EXPECT_EQ(none, (Tint32Array{1, 0}));

    Tint32Array b{4, -2, 8, 0};
    TdynStatic::bubbleSort(b);
    EXPECT_EQ(b, (Tint32Array{-2, 0, 4, 8}));
}

TEST(TdynStaticSort, MappedLookupFindsLiveIdsOnly) {
    Tint32Array ids{12, 40, 7};
    Tint32Array index;
    TdynStatic::quickSortInPlace(ids, index);
    int at = -1;
    ASSERT_TRUE(TdynStatic::findMappedIndexFromValue(ids, index, 40, at));
    EXPECT_EQ(at, 1);
    ASSERT_TRUE(TdynStatic::findMappedIndexFromValue(ids, index, 7, at));
    EXPECT_EQ(at, 2);
    EXPECT_FALSE(TdynStatic::findMappedIndexFromValue(ids, index, 8, at));
    EXPECT_EQ(TdynStatic::binarySearch(Tint32Array{}, 3), -1);
}

TEST(TdynStaticMatrix, PartsOfAMatrixComeOffCleanly) {
    // Scale 2 on x, a quarter turn about z, then a move.
    T4dDblMatrix m = T4dDblMatrix::scaling(T4dDblVector{2, 1, 1});
    T4dDblMatrix rz;
    rz.m[0][0] = 0;
    rz.m[0][1] = 1;
    rz.m[1][0] = -1;
    rz.m[1][1] = 0;
    m = m * rz * T4dDblMatrix::translation({5, 6, 7});

    T4dDblMatrix noT = TdynStatic::matrixWithoutTranslation(m);
    EXPECT_EQ(noT.getTranslation(), T4dDblVector(0, 0, 0));
    EXPECT_TRUE(noT.transformPoint({1, 0, 0}).isEquivalent({0, 2, 0}, 1e-12));

    T4dDblMatrix noS = TdynStatic::matrixWithoutScale(m);
    EXPECT_TRUE(noS.transformVector({1, 0, 0}).isEquivalent({0, 1, 0}, 1e-12));

    T4dDblMatrix noR = TdynStatic::matrixWithoutRotation(m);
    EXPECT_TRUE(noR.transformPoint({1, 1, 1}).isEquivalent({7, 7, 8}, 1e-12));
}

TEST(TdynStaticMatrix, PointVelocityOfAMovingFrame) {
    // A frame that moves 3 units along x in half a second: 6 units a second.
    T4dDblMatrix before = T4dDblMatrix::translation({1, 0, 0});
    T4dDblMatrix after = T4dDblMatrix::translation({4, 0, 0});
    T4dDblVector v = TdynStatic::worldVelocityOfPoint({4, 2, 0}, before, after, 0.5);
    EXPECT_TRUE(v.isEquivalent({6, 0, 0}, 1e-12));
    EXPECT_EQ(TdynStatic::worldVelocityOfPoint({4, 2, 0}, before, after, 0.0), T4dDblVector());
}

TEST(TdynStaticArrays, WritableArraysCopyOnlyWhenShared) {
    Tdata a = makeData<TdataVectorArray>(T4dDblVectorArray{{1, 2, 3}});
    Tdata b = a;
    T4dDblVectorArray* w = TdynStatic::writableDataVectorArray(b);
    (*w)[0] = {9, 9, 9};
    EXPECT_EQ(TdynStatic::dataVectorArray(a)->operator[](0), T4dDblVector(1, 2, 3));
    TdynStatic::scaleArrayByDoubleInPlace(*w, 2);
    EXPECT_EQ((*w)[0], T4dDblVector(18, 18, 18));
    Tdata empty;
    ASSERT_NE(TdynStatic::writableDataDoubleArray(empty), nullptr);
    EXPECT_EQ(TdynStatic::dataVectorArray(empty), nullptr); // a double array is not a vector array
}

} // namespace
