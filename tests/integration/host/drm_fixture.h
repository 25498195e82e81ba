/**
 * @file drm_fixture.h
 * @brief A started library whose analysis the test drives itself: its timer never comes round, its clock stands still.
 */
#ifndef HOST_DRM_FIXTURE_H
#define HOST_DRM_FIXTURE_H

#include <string>
#include <vector>

#include "drm_abi.h"
#include "host_fixture.h"

inline constexpr uint32_t kDrmModule = 481;

class DrmTest : public HostTest {
protected:
    /** Events reach slow disk detection only; the other two are told on the test's thread. */
    void SetUp() override;

    /** A new disk, which all features have taken in but slow disk detection: that one does on its next run. */
    static uint32_t AddDisk(const std::string &sn, uint32_t type, const std::string &vendor);
    static uint32_t AddSata(const std::string &sn) { return AddDisk(sn, 2, "ATA"); }
    static uint32_t AddSas(const std::string &sn) { return AddDisk(sn, 1, "ORSYL"); }
    static uint32_t AddNvme(const std::string &sn) { return AddDisk(sn, 0, "VELMAR"); }
    static uint32_t AddHdd(const std::string &sn) { return AddDisk(sn, 3, "SEAGATE"); }

    static uint32_t State(uint32_t id) { return Base(id).diskState; }
    /** Health as an agent's record would have left it. */
    static void SetHealth(uint32_t id, const lib::DiskHealthInfo &health) { Object(id).healthInfo = health; }
    static void SetDetail(uint32_t id, const std::vector<uint8_t> &detail);
    static void SetWear(uint32_t id, uint64_t hours, uint32_t wear);
    static lib::DiskDrmInfo Drm(uint32_t id);

    /** Identifiers of the nodes of a list, from its first on. */
    static std::vector<uint32_t> IdsOf(const lib::ListHead &head);
    /** Lines of the analysis at this level with this text. */
    static size_t Logged(uint32_t level, const std::string &text);
    /** Run a command line in the shell. @return what it printed. */
    static std::string Shell(const std::vector<std::string> &words, int *result = nullptr);
};

#endif
