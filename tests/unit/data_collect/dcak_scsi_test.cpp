#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_scsi.h"

#include <array>

#include "unit/data_collect/dcak_fixture.h"

namespace {

struct Builder {
    const char *name;
    std::function<void(ScsiIoParam *)> build;
    Bytes cdb;
    uint32_t dataLength;
};

std::string BuilderName(const ::testing::TestParamInfo<Builder> &info)
{
    return info.param.name;
}

} // namespace

class ScsiBuilderTest : public ::testing::TestWithParam<Builder> {};

TEST_P(ScsiBuilderTest, WritesEveryByteOfTheCommand)
{
    std::array<uint8_t, 16> cdb;
    cdb.fill(0xEE);
    std::array<uint8_t, 512> data{};
    std::array<uint8_t, 96> sense{};
    ScsiIoParam param = {cdb.data(), 0, data.data(), 256, sense.data(), 96};

    GetParam().build(&param);
    sg_io_hdr_t hdr;
    std::memset(&hdr, 0xEE, sizeof(hdr));
    InitIoHdrComPara(&hdr, &param);

    Bytes padded = GetParam().cdb;
    padded.resize(16);
    EXPECT_EQ(Bytes(cdb.begin(), cdb.end()), padded);
    sg_io_hdr_t expected = {};
    expected.interface_id = 'S';
    expected.dxfer_direction = SG_DXFER_FROM_DEV;
    expected.cmd_len = static_cast<unsigned char>(GetParam().cdb.size());
    expected.mx_sb_len = 96;
    expected.dxfer_len = GetParam().dataLength;
    expected.dxferp = data.data();
    expected.cmdp = cdb.data();
    expected.sbp = sense.data();
    expected.timeout = 20000;
    EXPECT_EQ(std::memcmp(&hdr, &expected, offsetof(sg_io_hdr_t, flags)), 0);
    EXPECT_EQ(hdr.flags, 0u);
    EXPECT_EQ(hdr.info, 0u);
    EXPECT_EQ(hdr.usr_ptr, nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, ScsiBuilderTest,
    ::testing::Values(Builder{"PowerOn", [](ScsiIoParam *p) { InitPohParm(p); }, kCdbPoh, 256},
                      Builder{"Wear", [](ScsiIoParam *p) { InitDiskWearParam(p); }, kCdbWear, 256},
                      Builder{"LogList", [](ScsiIoParam *p) { InitLogSensePara(p, 0); }, CdbLogSense(0), 256},
                      Builder{"LogPage", [](ScsiIoParam *p) { InitLogSensePara(p, 0x2F); }, CdbLogSense(0x2F), 256},
                      Builder{"Inquiry", [](ScsiIoParam *p) { InitInquiryCommonParams(p, 0, 0); }, kCdbInquiry, 256},
                      Builder{"InquirySerial", [](ScsiIoParam *p) { InitInquiryCommonParams(p, 0x80, 1); },
                              kCdbInquirySerial, 256},
                      Builder{"RequestSense", [](ScsiIoParam *p) { InitHddCommonParams(p); }, kCdbRequestSense, 256},
                      Builder{"Thresholds", [](ScsiIoParam *p) { InitSmartThresholdParam(p, 1); }, kCdbThresholds, 512},
                      Builder{"Data", [](ScsiIoParam *p) { InitSmartDataParam(p, 1); }, kCdbSmartData, 512}),
    BuilderName);

TEST(InitSmartDataParamTest, CountGoesHighByteFirst)
{
    std::array<uint8_t, 16> cdb{};
    ScsiIoParam param = {cdb.data(), 0, nullptr, 0, nullptr, 0};

    InitSmartDataParam(&param, 0x0203);

    EXPECT_EQ(cdb[5], 2);
    EXPECT_EQ(cdb[6], 3);
}

TEST(InitInquiryCommonParamsTest, AllocationLengthIsTheLowByteOfTheDataLength)
{
    std::array<uint8_t, 16> cdb{};
    ScsiIoParam param = {cdb.data(), 0, nullptr, 0x1FE, nullptr, 32};

    InitInquiryCommonParams(&param, 0, 0);

    EXPECT_EQ(cdb[4], 0xFE);
    EXPECT_EQ(param.dataLength, 0x1FEu);
    EXPECT_EQ(param.senseLength, 32u);
}

struct Completion {
    uint32_t info;
    uint16_t host;
    uint16_t driver;
    int32_t result;
    uint32_t level; ///< of the line; 0 for none
    const char *text;
};

class DcakScsiIoCompleteTest : public DcakTest, public ::testing::WithParamInterface<Completion> {};

TEST_P(DcakScsiIoCompleteTest, JudgesHostAndDriver)
{
    sg_io_hdr_t hdr = {};
    hdr.info = GetParam().info;
    hdr.host_status = GetParam().host;
    hdr.driver_status = GetParam().driver;
    hdr.status = 2; // a SCSI error status alone is no failure

    EXPECT_EQ(DcakScsiIoComplete("/dev/sda", &hdr), GetParam().result);

    EXPECT_EQ(Logs().size(), GetParam().level == 0 ? 0u : 1u);
    if (GetParam().level != 0) {
        EXPECT_TRUE(Logged(GetParam().level, "DCAK", GetParam().text)) << GetParam().text;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Outcomes, DcakScsiIoCompleteTest,
    ::testing::Values(Completion{0, 7, 1, 0, 0, ""}, Completion{2, 3, 6, 0, 0, ""},
                      Completion{1, 1, 0, -110, 3, "/dev/sda: IO timed out "},
                      Completion{1, 2, 0, -110, 3, "/dev/sda: IO timed out "},
                      Completion{1, 3, 8, -110, 3, "/dev/sda: IO timed out "},
                      Completion{1, 0, 6, -110, 3, "/dev/sda: IO timed out "},
                      Completion{1, 7, 0x16, -110, 3, "/dev/sda: IO timed out "},
                      Completion{3, 0, 8, 0, 7, "/dev/sda: IO check condition"},
                      Completion{1, 0, 0x28, 0, 7, "/dev/sda: IO check condition"}, Completion{1, 0, 0, 0, 0, ""},
                      Completion{1, 5, 0, 0, 0, ""},
                      Completion{1, 7, 0, -5, 3, "/dev/sda: IO error: host_status: 7, drv_status: 0 "},
                      Completion{1, 7, 8, -5, 3, "/dev/sda: IO error: host_status: 7, drv_status: 8 "},
                      Completion{1, 0, 0x21, -5, 3, "/dev/sda: IO error: host_status: 0, drv_status: 1 "}));

using OpenDevExecIoctlTest = DcakTest;

TEST_F(OpenDevExecIoctlTest, MissingDeviceIsTold)
{
    sg_io_hdr_t hdr = {};

    EXPECT_EQ(OpenDevExecIoctl("/dev/none", &hdr), 0xFFFFFFFFu);

    EXPECT_TRUE(Logged(3, "DCAK", "open dev failed: /dev/none"));
}

TEST_F(OpenDevExecIoctlTest, FailedIoctlIsToldWithItsError)
{
    AddSasSsd("sda");
    std::array<uint8_t, 16> cdb{};
    std::array<uint8_t, 256> data{};
    std::array<uint8_t, 96> sense{};
    ScsiIoParam param = {cdb.data(), 0, data.data(), 0, sense.data(), 0};
    InitPohParm(&param);
    sg_io_hdr_t hdr;
    InitIoHdrComPara(&hdr, &param);
    PlanCommand({kCdbPoh, 256, 96, {}, nullptr, EPERM});

    EXPECT_EQ(OpenDevExecIoctl("/dev/sda", &hdr), 0xFFFFFFFFu);

    EXPECT_TRUE(Logged(3, "DCAK", "/dev/sda: SG_IO ioctl failed, errno: 1, errstr: Operation not permitted"));
    EXPECT_THAT(Opened(), ::testing::ElementsAre(Root() + "/dev/sda"));
}

class DcakGetSasVendorIdTest : public DcakTest {
protected:
    DcakGetSasVendorIdTest() { AddSasSsd("sda"); }
    std::array<char, 50> vendor_{"before"};
};

TEST_F(DcakGetSasVendorIdTest, TakesEightCharacters)
{
    Bytes data(8, 0);
    for (const char letter : std::string("SEAGATE ST1234")) {
        data.push_back(static_cast<uint8_t>(letter));
    }
    PlanCommand({kCdbInquiry, 256, 96, data, nullptr, 0});
    SetSwitches(1, 0);

    EXPECT_EQ(DcakGetSasVendorId("/dev/sda", sizeof(vendor_), vendor_.data()), 0u);

    EXPECT_STREQ(vendor_.data(), "SEAGATE ");
    EXPECT_TRUE(Logged(7, "DCAK", "/dev/sda venderId:SEAGATE "));
}

TEST_F(DcakGetSasVendorIdTest, DeviceThatReturnsNothingHasAnEmptyVendor)
{
    PlanCommand({kCdbInquiry, 256, 96, {}, nullptr, 0});

    EXPECT_EQ(DcakGetSasVendorId("/dev/sda", sizeof(vendor_), vendor_.data()), 0u);

    EXPECT_STREQ(vendor_.data(), "");
}

TEST_F(DcakGetSasVendorIdTest, FailuresAreTold)
{
    PlanCommand({kCdbInquiry, 256, 96, {}, nullptr, EIO});
    PlanCommand({kCdbInquiry, 256, 96, {}, Outcome(7, 0), 0});

    EXPECT_EQ(DcakGetSasVendorId("/dev/sda", sizeof(vendor_), vendor_.data()), 0xFFFFFFFFu);
    EXPECT_EQ(DcakGetSasVendorId("/dev/sda", sizeof(vendor_), vendor_.data()), 0xFFFFFFFFu);

    EXPECT_TRUE(Logged(3, "DCAK", "exec ioctl failed /dev/sda"));
    EXPECT_TRUE(Logged(3, "DCAK", "DcakScsiIoComplete failed, /dev/sda"));
    EXPECT_STREQ(vendor_.data(), "before");
}

class DcakCalSerialTest : public DcakTest {
protected:
    std::string Cal(uint8_t length, const std::string &text, uint32_t size = 128)
    {
        std::array<uint8_t, 256> page{};
        page[3] = length;
        for (size_t i = 0; i < text.size() && i < 252; i++) {
            page[4 + i] = static_cast<uint8_t>(text[i]);
        }
        std::array<char, 128> serial{"before"};
        const uint32_t result = DcakCalSerial(page.data(), size, serial.data());
        return result == 0 ? serial.data() : "failed";
    }
};

TEST_F(DcakCalSerialTest, DropsBlanksAndControlsAndTurnsColons)
{
    EXPECT_EQ(Cal(10, " A\t:\x01 B:C\x20"), "A;B;C");
}

TEST_F(DcakCalSerialTest, LengthBinds)
{
    EXPECT_EQ(Cal(3, "ABCDE"), "ABC");
}

TEST_F(DcakCalSerialTest, KeepsTheLast36)
{
    EXPECT_EQ(Cal(36, std::string(36, 'a')), std::string(36, 'a'));
    EXPECT_EQ(Cal(38, "xy" + std::string(36, 'a')), std::string(36, 'a'));
}

TEST_F(DcakCalSerialTest, LengthAboveTheBufferIsCut)
{
    EXPECT_EQ(Cal(255, std::string(216, 'a') + std::string(36, 'b')), std::string(36, 'b'));
}

TEST_F(DcakCalSerialTest, EmptyPageIsTold)
{
    EXPECT_EQ(Cal(0, "ABC"), "failed");

    EXPECT_TRUE(Logged(3, "DCAK", "serial len less than 0"));
}

TEST_F(DcakCalSerialTest, ShortOutputIsTold)
{
    EXPECT_EQ(Cal(4, "ABCD", 5), "ABCD");
    EXPECT_EQ(Cal(4, "ABCD", 4), "failed");

    EXPECT_TRUE(Logged(3, "DCAK", "strncpy_s failed"));
}

using DcakGetSerialNumByIoCtlTest = DcakTest;

TEST_F(DcakGetSerialNumByIoCtlTest, AsksThePageWithShortSense)
{
    AddSasSsd("sda");
    PlanCommand({kCdbInquirySerial, 256, 32, {0, 0x80, 0, 4, ' ', 'S', 'N', '1'}, nullptr, 0});
    std::array<char, 40> serial{};

    EXPECT_EQ(DcakGetSerialNumByIoCtl("/dev/sda", serial.size(), serial.data()), 0u);

    EXPECT_STREQ(serial.data(), "SN1");
}
