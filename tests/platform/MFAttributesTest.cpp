// The attribute store: each value readable only as the type it was set with, and the failure codes
// of a missing key, another type and a short buffer. (Held objects: see SourceReaderTest's counts.)
#include <gtest/gtest.h>

#include "MediaFoundation.h"

namespace {

const GUID kKey = {0x12345678, 0x1234, 0x1234, {1, 2, 3, 4, 5, 6, 7, 8}};

TEST(MFAttributes, GivesEachValueOnlyAsItsOwnType) {
    ComPtr<IMFMediaType> type;
    ASSERT_EQ(MFCreateMediaType(type.put()), S_OK);
    UINT32 u32 = 0;
    UINT64 u64 = 0;
    GUID guid{};
    EXPECT_EQ(type->GetUINT32(kKey, &u32), MF_E_ATTRIBUTENOTFOUND);
    EXPECT_EQ(type->GetMajorType(&guid), MF_E_ATTRIBUTENOTFOUND);
    ASSERT_EQ(type->SetUINT64(kKey, 0x100000002ull), S_OK);
    EXPECT_EQ(type->GetUINT64(kKey, &u64), S_OK);
    EXPECT_EQ(u64, 0x100000002ull);
    EXPECT_EQ(type->GetUINT32(kKey, &u32), MF_E_INVALIDTYPE);
    EXPECT_EQ(type->GetGUID(kKey, &guid), MF_E_INVALIDTYPE);
    ASSERT_EQ(type->SetUINT32(kKey, 7), S_OK);
    EXPECT_EQ(type->GetUINT64(kKey, &u64), MF_E_INVALIDTYPE) << "a set replaces the type too";
    ASSERT_EQ(type->SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video), S_OK);
    EXPECT_EQ(type->GetMajorType(&guid), S_OK);
    EXPECT_EQ(guid, MFMediaType_Video);
    EXPECT_EQ(type->GetCount(&u32), S_OK);
    EXPECT_EQ(u32, 2u);
    EXPECT_EQ(type->DeleteItem(kKey), S_OK);
    EXPECT_EQ(type->GetUINT32(kKey, &u32), MF_E_ATTRIBUTENOTFOUND);

    const UINT8 blob[5] = {1, 2, 3, 4, 5};
    ASSERT_EQ(type->SetBlob(kKey, blob, sizeof blob), S_OK);
    UINT8 copy[8] = {};
    EXPECT_EQ(type->GetBlob(kKey, copy, 4, &u32), E_NOT_SUFFICIENT_BUFFER);
    EXPECT_EQ(type->GetBlob(kKey, copy, sizeof copy, &u32), S_OK);
    EXPECT_EQ(u32, 5u);
    EXPECT_EQ(std::memcmp(copy, blob, sizeof blob), 0);
}

}  // namespace
