#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_slot.h"

#include <sys/stat.h>
#include <tuple>

#include "unit/data_collect/dcak_fixture.h"

namespace {

constexpr uint32_t kUntouched = 77;
constexpr off_t kRegisters = 0x80000000;
const char *const kBoardCommand = "dmidecode -t 2 2>/dev/null | grep \"Product Name:\" | awk -F': ' '{print$2}'";

int g_openFlags = 0;

int OpenReal(const char *path, int flags)
{
    g_openFlags = flags;
    return open(path, flags);
}

std::string PortCommand(const std::string &address)
{
    return "lspci -PP -s " + address + " 2>/dev/null | awk -F'/' '{print$1}'";
}

} // namespace

/** A board of the known family, with a register page in place of the machine's memory. */
class DcakSlotTest : public DcakTest {
protected:
    DcakSlotTest()
    {
        g_osCalls.open = OpenReal;
        g_openFlags = 0;
        PlanTool(kBoardCommand, "QXR4BDMZ31\n");
        SetConfig(0x120401);
    }
    ~DcakSlotTest() override { g_dcakCheckPciAddress = 0; }

    std::string Memory() const { return Root() + "/dev/mem"; }
    void SetConfig(uint32_t id) const
    {
        const int fd = open(Memory().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        const std::array<uint8_t, 3> bytes{static_cast<uint8_t>(id), static_cast<uint8_t>(id >> 8),
                                           static_cast<uint8_t>(id >> 16)};
        ASSERT_EQ(ftruncate(fd, kRegisters + 4096), 0); // sparse
        ASSERT_EQ(pwrite(fd, bytes.data(), bytes.size(), kRegisters + 0x10A), 3);
        (void)close(fd);
    }
    static size_t Lines(uint32_t level, const std::string &text) { return LogCount(level, "DCAK", text); }
    static void PlanPort(const std::string &address, const std::string &output)
    {
        PlanTool(PortCommand(address), output);
    }
    static uint32_t SlotOf(uint32_t (*lookup)(uint32_t, uint32_t *), uint32_t bdf)
    {
        uint32_t slot = kUntouched;
        return lookup(bdf, &slot) == DCAK_OK ? slot : DCAK_FAIL;
    }
    /** Both in one look: what the lookup gave, and that a failure leaves the caller's word alone. */
    static std::pair<uint32_t, uint32_t> Resolve(const char *address)
    {
        uint32_t slot = kUntouched;
        const uint32_t ret = GetSlotIdByPciAddr(address, &slot);
        return {ret, slot};
    }
    static constexpr std::pair<uint32_t, uint32_t> kRefused{DCAK_FAIL, kUntouched};
};

class CheckSystemBaseBoardValidTest : public DcakSlotTest {};

TEST_F(CheckSystemBaseBoardValidTest, TakesTheTwoKnownBoards)
{
    EXPECT_STREQ(g_marloBaseBoardName[0], "QXR4BDMZ31");
    EXPECT_STREQ(g_marloBaseBoardName[1], "QXR4BDMZ32");
    for (const char *name : g_marloBaseBoardName) {
        PlanTool(kBoardCommand, std::string(name) + "\nQXR\n");
        EXPECT_EQ(CheckSystemBaseBoardValid(), DCAK_OK) << name;
    }
    EXPECT_EQ(Lines(7, "system base board is valid for disk slot query."), 2u);
}

TEST_F(CheckSystemBaseBoardValidTest, RefusesAnyOther)
{
    for (const char *name : {"QXR4BDMZ33", "QXR4BDMZ31 ", "qxr4bdmz31", "QXR4BDMZ3"}) {
        PlanTool(kBoardCommand, std::string(name) + "\n");
        EXPECT_EQ(CheckSystemBaseBoardValid(), DCAK_FAIL);
        EXPECT_EQ(Lines(3, std::string("system base board product name <") + name + "> is not valid."), 1u);
    }
}

TEST_F(CheckSystemBaseBoardValidTest, RefusesAMachineThatTellsNoName)
{
    PlanTool(kBoardCommand, "");

    EXPECT_EQ(CheckSystemBaseBoardValid(), DCAK_FAIL);

    EXPECT_EQ(Lines(3, "base board name is NULL."), 1u);
}

TEST_F(CheckSystemBaseBoardValidTest, OutputOf511CharactersFitsAndOneMoreDoesNot)
{
    PlanTool(kBoardCommand, "QXR4BDMZ31\n" + std::string(500, 'x'));
    EXPECT_EQ(CheckSystemBaseBoardValid(), DCAK_OK);

    PlanTool(kBoardCommand, "QXR4BDMZ31\n" + std::string(501, 'x'));
    EXPECT_EQ(CheckSystemBaseBoardValid(), DCAK_FAIL);

    EXPECT_EQ(Lines(3, "exec dmidecode cmd failed."), 1u);
}

class GetMarloConfigTypeTest : public DcakSlotTest {};

TEST_F(GetMarloConfigTypeTest, ReadsThreeBytesLowestFirst)
{
    SetConfig(0xABCDEF);
    uint32_t config = kUntouched;

    EXPECT_EQ(GetMarloConfigType(&config), DCAK_OK);

    EXPECT_EQ(config, 0xABCDEFu);
    EXPECT_EQ(g_openFlags & O_ACCMODE, O_RDWR);
    EXPECT_NE(g_openFlags & O_CLOEXEC, 0) << "a tool of another request must not hold the memory open";
    EXPECT_EQ(Lines(7, "marlo configId is: abcdef, regA<ef>, regB<cd>, regC<ab>."), 0u);
}

TEST_F(GetMarloConfigTypeTest, TellsTheRegistersWhileDebugging)
{
    SetSwitches(1, 0);
    SetConfig(0x120401);
    uint32_t config = kUntouched;

    EXPECT_EQ(GetMarloConfigType(&config), DCAK_OK);

    EXPECT_EQ(Lines(7, "marlo configId is: 120401, regA<1>, regB<4>, regC<12>."), 1u);
}

TEST_F(GetMarloConfigTypeTest, SaysThatTheMemoryCannotBeOpened)
{
    std::filesystem::remove(Memory());
    uint32_t config = kUntouched;

    EXPECT_EQ(GetMarloConfigType(&config), DCAK_FAIL);
    EXPECT_EQ(GetMarloConfigType(nullptr), DCAK_FAIL);

    EXPECT_EQ(config, kUntouched);
    EXPECT_EQ(Lines(3, "open /dev/mem failed."), 1u);
}

TEST_F(GetMarloConfigTypeTest, SaysWhyTheMemoryCannotBeMapped)
{
    std::filesystem::remove(Memory());
    std::filesystem::create_symlink("/dev/null", Memory()); // opens, but is no memory
    uint32_t config = kUntouched;

    EXPECT_EQ(GetMarloConfigType(&config), DCAK_FAIL);

    EXPECT_EQ(config, kUntouched);
    EXPECT_EQ(Lines(3, "get mapBase failed, errno: No such device."), 1u);
}

TEST_F(GetMarloConfigTypeTest, LeavesNoDescriptorOpen)
{
    const int before = dup(STDERR_FILENO);
    (void)close(before);
    uint32_t config = 0;
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(GetMarloConfigType(&config), DCAK_OK);
    }
    std::filesystem::remove(Memory());
    std::filesystem::create_symlink("/dev/null", Memory());
    EXPECT_EQ(GetMarloConfigType(&config), DCAK_FAIL);

    const int after = dup(STDERR_FILENO);
    EXPECT_EQ(after, before);
    (void)close(after);
}

class GetSlotBdfNumTest : public DcakSlotTest {};

TEST_F(GetSlotBdfNumTest, JoinsBusDeviceAndFunction)
{
    const std::vector<std::pair<const char *, uint32_t>> cases{
        {"80:07.0", 0x8038}, {"80:13.0", 0x8098}, {"00:00.0", 0},        {"00:0a.0", 0x0050},   {"FF:1f.7", 0xFFFF},
        {"180:7.1", 0x8039}, {"1:2.3x", 0x0113},  {"1:120.100", 0x0100}, {"2:120.100", 0x0300},
    };
    for (const auto &[text, wanted] : cases) {
        uint32_t number = kUntouched;
        EXPECT_EQ(GetSlotBdfNum(text, &number), DCAK_OK) << text;
        EXPECT_EQ(number, wanted) << text;
    }
    EXPECT_EQ(Lines(7, "GetSlotBdfNum succeed in getting bdf num: 32824."), 1u);
}

TEST_F(GetSlotBdfNumTest, RefusesWhatIsNotThreeFields)
{
    uint32_t number = kUntouched;
    for (const char *text : {"0000:80:07.0", "80:07", "80.07.0", "", "x", "80:07.g"}) {
        EXPECT_EQ(GetSlotBdfNum(text, &number), DCAK_FAIL) << text;
    }
    EXPECT_EQ(GetSlotBdfNum(nullptr, &number), DCAK_FAIL);
    EXPECT_EQ(GetSlotBdfNum("80:07.0", nullptr), DCAK_FAIL);

    EXPECT_EQ(number, kUntouched);
    EXPECT_EQ(Lines(3, "Parse bdfStr into busNum, devNum, funcNum failed."), 8u);
}

class GetSlotFromMarloTableTest : public DcakSlotTest {};

TEST_F(GetSlotFromMarloTableTest, EachConfigurationHasItsTable)
{
    const std::vector<std::pair<uint32_t, MarloSlotLookup>> wanted{
        {0x000000, GetSlotFromMarloTable4Slab},  {0x120101, GetSlotFromMarloTable4Slab},
        {0x120201, GetSlotFromMarloTable4Slab},  {0x120300, GetSlotFromMarloTable4Slab},
        {0x120401, GetSlotFromMarloTable25Slab}, {0x120500, GetSlotFromMarloTable25Slab},
        {0x120600, GetSlotFromMarloTable4Slab},  {0x120701, GetSlotFromMarloTable4Slab},
        {0x120801, GetSlotFromMarloTable21Slab}, {0x120900, GetSlotFromMarloTable25Slab},
    };
    ASSERT_EQ(std::size(SlotMethodTable), wanted.size());
    for (size_t i = 0; i < wanted.size(); i++) {
        EXPECT_EQ(SlotMethodTable[i].configId, wanted[i].first);
        EXPECT_EQ(SlotMethodTable[i].lookup, wanted[i].second) << i;
    }

    // 0x0050 is in all three: slot 0 of four, slot 15 of the others; 0x8038 only in the one of 25
    for (const auto &[config, lookup] : wanted) {
        SetConfig(config);
        const bool four = lookup == GetSlotFromMarloTable4Slab;
        EXPECT_EQ(SlotOf(GetSlotFromMarloTable, 0x0050), four ? 0u : 15u) << std::hex << config;
        EXPECT_EQ(SlotOf(GetSlotFromMarloTable, 0x8038), lookup == GetSlotFromMarloTable25Slab ? 0u : DCAK_FAIL);
    }
}

TEST_F(GetSlotFromMarloTableTest, RefusesAnUnknownConfiguration)
{
    for (const uint32_t config : {1u, 0x120402u, 0xFFFFFFu}) {
        SetConfig(config);
        EXPECT_EQ(SlotOf(GetSlotFromMarloTable, 0x0050), DCAK_FAIL);
        EXPECT_EQ(Lines(3, "No matching get slot id method from configId: " + std::to_string(config) + "."), 1u);
    }
}

TEST_F(GetSlotFromMarloTableTest, SaysThatThereIsNoConfiguration)
{
    std::filesystem::remove(Memory());

    EXPECT_EQ(SlotOf(GetSlotFromMarloTable, 0x0050), DCAK_FAIL);

    EXPECT_EQ(Lines(3, "Get marlo config id failed."), 1u);
}

TEST_F(GetSlotFromMarloTableTest, HoldsEverySlotOfEachTable)
{
    using Row = std::pair<uint32_t, uint32_t>;
    const std::vector<Row> common{{0x0030, 7},  {0x0028, 8},  {0x0018, 9},  {0x0010, 10}, {0x0008, 11}, {0x0000, 13},
                                  {0x0038, 14}, {0x0050, 15}, {0x0020, 16}, {0x0040, 17}, {0x8058, 18}, {0x8050, 19},
                                  {0x8048, 20}, {0x0090, 21}, {0x0058, 22}, {0x8070, 23}, {0x8060, 24}};
    std::vector<Row> of25{{0x8038, 0}, {0x8030, 1}, {0x8028, 2}, {0x8020, 3},
                          {0x8018, 4}, {0x8010, 5}, {0x8000, 6}, {0x8008, 12}};
    std::vector<Row> of21{{0x8098, 4}, {0x8090, 5}, {0x8080, 6}, {0x8088, 12}};
    of25.insert(of25.end(), common.begin(), common.end());
    of21.insert(of21.end(), common.begin(), common.end());
    const std::vector<Row> of4{{0x0050, 0}, {0x0040, 1}, {0x0090, 2}, {0x0058, 3}};
    const std::vector<std::tuple<MarloSlotLookup, std::vector<Row>, std::string>> tables{
        {GetSlotFromMarloTable4Slab, of4, "4"},
        {GetSlotFromMarloTable25Slab, of25, "25"},
        {GetSlotFromMarloTable21Slab, of21, "21"}};
    for (const auto &[lookup, rows, name] : tables) {
        uint32_t found = 0;
        for (uint32_t bdf = 0; bdf <= 0xFFFF; bdf += 8) {
            const auto row = std::find_if(rows.begin(), rows.end(), [&](const Row &r) { return r.first == bdf; });
            const uint32_t slot = SlotOf(lookup, bdf);
            ASSERT_EQ(slot, row != rows.end() ? row->second : DCAK_FAIL) << name << " " << std::hex << bdf;
            found += slot != DCAK_FAIL ? 1 : 0;
        }
        EXPECT_EQ(found, rows.size()) << name;
        EXPECT_EQ(Lines(3, "No matching slot id in " + name + "-slab table from pcieBdf num: 65528."), 1u);
        EXPECT_EQ(SlotOf(lookup, rows.back().first + 1), DCAK_FAIL) << "the function counts";
    }
    EXPECT_EQ(Lines(7, "Found slot id <3> from 4-slab bdf-slot table."), 1u);
    EXPECT_EQ(Lines(7, "Found slot id <3> from 25-slab bdf-slot table."), 1u);
    EXPECT_EQ(Lines(7, "Found slot id <4> from 21-slab bdf-slot table."), 1u);
}

class GetSlotIdByPciAddrTest : public DcakSlotTest {};

TEST_F(GetSlotIdByPciAddrTest, RootPortDecidesWithTheConfiguration)
{
    PlanPort("0000:3b:00.0", "80:07.0\n");
    PlanPort("0000:3c:00.0", "80:13.0");
    const auto slot0 = Resolve("0000:3b:00.0");
    SetConfig(0x120801);
    const auto without = Resolve("0000:3b:00.0");
    const auto slot4 = Resolve("0000:3c:00.0");
    SetConfig(0);
    PlanPort("0000:3d:00.0", "00:0a.0/01:00.0/02:00.0 Non-Volatile\n00:08.0\n");
    PlanPort("0000:3e:00.0", "\n00:08.0\n00:0a.0\n");

    EXPECT_EQ(slot0, (std::pair<uint32_t, uint32_t>{DCAK_OK, 0}));
    EXPECT_EQ(without, kRefused);
    EXPECT_EQ(slot4, (std::pair<uint32_t, uint32_t>{DCAK_OK, 4}));
    EXPECT_EQ(Resolve("0000:3d:00.0"), (std::pair<uint32_t, uint32_t>{DCAK_OK, 0})) << "the first line decides";
    EXPECT_EQ(Resolve("0000:3e:00.0"), (std::pair<uint32_t, uint32_t>{DCAK_OK, 1}));
    EXPECT_EQ(Lines(3, "GetSlotIdByPciAddr failed in GetSlotFromMarloTable, pcieBdf is 32824."), 1u);
}

TEST_F(GetSlotIdByPciAddrTest, RefusesNull)
{
    uint32_t slot = 0;

    EXPECT_EQ(GetSlotIdByPciAddr(nullptr, &slot), DCAK_FAIL);
    EXPECT_EQ(GetSlotIdByPciAddr("0000:3b:00.0", nullptr), DCAK_FAIL);

    EXPECT_EQ(Lines(3, "param pciAddr or slotId is NULL."), 2u);
}

TEST_F(GetSlotIdByPciAddrTest, AnotherBoardIsNotAskedForItsPorts)
{
    PlanTool(kBoardCommand, "OTHER\n");

    EXPECT_EQ(Resolve("0000:3b:00.0"), kRefused);

    EXPECT_EQ(TimesRun(PortCommand("0000:3b:00.0")), 0u);
    EXPECT_EQ(Lines(3, "System base board is not valid for disk slot query."), 1u);
}

TEST_F(GetSlotIdByPciAddrTest, RefusesAPortThatIsNone)
{
    PlanPort("a", "");
    PlanPort("b", "0000:80:07.0\n");
    PlanPort("c", std::string(512, 'x'));

    EXPECT_EQ(Resolve("a"), kRefused);
    EXPECT_EQ(Resolve("b"), kRefused);
    EXPECT_EQ(Resolve("c"), kRefused);

    EXPECT_EQ(Lines(3, "bdf string is NULL."), 1u);
    EXPECT_EQ(Lines(3, "GetSlotIdByPciAddr failed in parsing into bdf num, bdfStr is 0000:80:07.0."), 1u);
    EXPECT_EQ(Lines(3, "exec cmd failed, cmd is: " + PortCommand("c") + "."), 1u);
}

TEST_F(GetSlotIdByPciAddrTest, CommandOf511CharactersFitsAndOneMoreDoesNot)
{
    const size_t room = 511 - PortCommand("").size();
    PlanPort(std::string(room, '1'), "80:07.0\n");

    EXPECT_EQ(Resolve(std::string(room, '1').c_str()).first, DCAK_OK);
    EXPECT_EQ(Resolve(std::string(room + 1, '1').c_str()), kRefused);

    EXPECT_EQ(Lines(3, "snprintf_s failed: lspci -PP -s %s 2>/dev/null | awk -F'/' '{print$1}', pciAddr:" +
                           std::string(room + 1, '1')),
              1u);
}

TEST_F(GetSlotIdByPciAddrTest, AddressStandsInTheCommandAsItIsUnlessChecked)
{
    const char *address = "0000:3b:00.0; reboot";
    PlanPort(address, "80:07.0\n");

    EXPECT_EQ(Resolve(address).first, DCAK_OK) << "the host has not asked for the check";
    g_dcakCheckPciAddress = 1;
    EXPECT_EQ(Resolve(address), kRefused);
    EXPECT_EQ(Resolve(""), kRefused);

    EXPECT_EQ(TimesRun(PortCommand(address)), 1u);
    EXPECT_EQ(Lines(3, "cmd not secure, 0000:3b:00.0; reboot"), 1u);
    PlanPort("0000:3b:00.0", "80:07.0\n");
    EXPECT_EQ(Resolve("0000:3b:00.0").first, DCAK_OK);
}

class DcakGetDiskSlotIdTest : public DcakSlotTest {};

TEST_F(DcakGetDiskSlotIdTest, AnswersInTheOrderOfTheRequest)
{
    PlanPort("0000:3b:00.0", "80:07.0\n");
    PlanPort("0000:3c:00.0", "80:0c.0\n");

    EXPECT_EQ(Answer(DcakGetDiskSlotId, R"([{"device_name":"nvme1 \n","pci_address":"0000:3c:00.0"},)"
                                        R"({"pci_address":"0000:3b:00.0","device_name":" nvme0"}])"),
              R"({"disks":[{"device_name":"nvme1","slot_id":24},{"device_name":" nvme0","slot_id":0}]})");

    EXPECT_EQ(Lines(7, "DcakGetDiskSlotId exec over, devListLen is 2."), 1u);
}

TEST_F(DcakGetDiskSlotIdTest, OneUnknownDiskEmptiesTheAnswer)
{
    PlanPort("0000:3b:00.0", "80:07.0\n");
    PlanPort("0000:3c:00.0", "80:1f.0\n");

    EXPECT_EQ(Answer(DcakGetDiskSlotId, R"([{"device_name":"nvme0","pci_address":"0000:3b:00.0"},)"
                                        R"({"device_name":"nvme1","pci_address":"0000:3c:00.0"}])"),
              "null");

    EXPECT_EQ(Lines(3, "GetSlotIdByPciAddr ERR."), 1u);
    EXPECT_EQ(Lines(7, "DcakGetDiskSlotId exec over, devListLen is 0."), 0u);
}

TEST_F(DcakGetDiskSlotIdTest, EndsAtADiskWithoutAddressOrName)
{
    PlanPort("0000:3b:00.0", "80:07.0\n");

    for (const char *devices : {R"([{"device_name":"nvme0"}])", R"([{"device_name":"nvme0","pci_address":7}])",
                                R"(["nvme0"])", R"([null])"}) {
        EXPECT_EQ(Answer(DcakGetDiskSlotId, devices), "null") << devices;
    }
    EXPECT_EQ(Lines(3, "param pciAddr or slotId is NULL."), 4u);
    EXPECT_EQ(Lines(3, "GetSlotIdByPciAddr ERR."), 4u);

    EXPECT_EQ(Answer(DcakGetDiskSlotId, R"([{"pci_address":"0000:3b:00.0"}])"), "null");
    EXPECT_EQ(Lines(3, "no device_name, or no memory, for the slot of 0000:3b:00.0"), 1u);
}

TEST_F(DcakGetDiskSlotIdTest, NoDiskIsAnEmptyList)
{
    EXPECT_EQ(Answer(DcakGetDiskSlotId, "[]"), R"({"disks":[]})");
    EXPECT_EQ(Answer(DcakGetDiskSlotId, "7"), R"({"disks":[]})");
}
