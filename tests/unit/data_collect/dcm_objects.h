/**
 * @file dcm_objects.h
 * @brief Good objects of an agent's answers, and how tests spoil them.
 */
#ifndef DCM_OBJECTS_H
#define DCM_OBJECTS_H

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "infrastructure/common/corvane_raii.h"

namespace dcm_objects {

inline CJsonPtr Parse(const std::string &text)
{
    CJsonPtr node(cJSON_Parse(text.c_str()));
    EXPECT_NE(node, nullptr) << text;
    return node;
}

/** Give @p object another value of @p member; null removes the member. */
inline void Set(cJSON *object, const char *member, const char *valueJson)
{
    cJSON_DeleteItemFromObjectCaseSensitive(object, member);
    if (valueJson != nullptr) {
        cJSON *value = cJSON_Parse(valueJson);
        ASSERT_NE(value, nullptr) << valueJson;
        ASSERT_TRUE(cJSON_AddItemToObject(object, member, value));
    }
}

inline CJsonPtr With(const std::string &text, const char *member, const char *valueJson)
{
    CJsonPtr node = Parse(text);
    Set(node.get(), member, valueJson);
    return node;
}

/** {"member": <valueJson>} with the value @p length times the letter x. */
inline std::string TextOf(size_t length)
{
    return '"' + std::string(length, 'x') + '"';
}

inline const std::string kBrief = R"({"device_name":"sda","serial_number":"SN-1"})";

inline const std::string kBase = R"({"device_name":"sda","serial_number":"SN-1","vendor_id":"VELMAR",)"
                                 R"("disk_type":"SSD_SATA","disk_media_type":"TLC","model_number":"MODEL 1",)"
                                 R"("firmware_revision":"FW1","disk_capacity":"960197124096","sector_size":512})";

inline const std::string kNvmeBase =
    R"({"device_name":"nvme0","serial_number":"SN-2","vendor_id":"0x1f7c","disk_type":"SSD_NVMe",)"
    R"("disk_media_type":"TLC","model_number":"MODEL 2","firmware_revision":"FW2","disk_capacity":"3840755982336",)"
    R"("sector_size":4096,"pci_address":"0000:3b:00.0"})";

/** The members that every health object has. */
inline std::string HealthHead(const std::string &type, const std::string &vendor)
{
    return R"({"serial_number":"SN-1","power_on_hours":8760,"wear":12345,"disk_type":")" + type + R"(","vendor_id":")" +
           vendor + '"';
}

/** Entry i of the list is {1+i, 2*i, 100-i, 90-i}. */
inline std::string SmartList(int entries)
{
    std::string list = "[";
    for (int i = 0; i < entries; i++) {
        list += (i == 0 ? "" : ",");
        list += R"({"id":)" + std::to_string(1 + i) + R"(,"threshold":)" + std::to_string(2 * i) +
                R"(,"current_value":)" + std::to_string(100 - i) + R"(,"worst":)" + std::to_string(90 - i) + '}';
    }
    return list + ']';
}

inline std::string NvmeHealth()
{
    return HealthHead("SSD_NVMe", "ANY") + R"(,"critical_warning":5})";
}
inline std::string SataSsdHealth(int entries = 30)
{
    return HealthHead("SSD_SATA", "ANY") + R"(,"SMART_list":)" + SmartList(entries) + '}';
}
inline std::string SasVssdHealth(const std::string &vendor = "VELMAR")
{
    return HealthHead("SSD_SAS", vendor) + R"(,"capacitance_id":7,"capacitance_status":9})";
}
inline std::string SasSsdHealth()
{
    return HealthHead("SSD_SAS", "OTHER") + R"(,"ASC":93,"ASCQ":16})";
}
inline std::string SasHddHealth(const std::string &type = "HDD_SAS", const std::string &support = "true")
{
    return HealthHead(type, "ANY") + R"(,"is_support_ie_log":)" + support + R"(,"ASC":93,"ASCQ":16})";
}

inline const std::string kFrame =
    R"({"serial_number":"SN-1","queue_depth":32,"io_busy_num":3,"io_time":"101","bytes_read":"102",)"
    R"("bytes_written":"103","num_read_ops":"104","num_write_ops":"105","read_latency_ticks":"106",)"
    R"("write_latency_ticks":"107"})";

/** {"disks":[object, object...]} */
inline std::string Disks(const std::string &object, int count)
{
    std::string text = R"({"disks":[)";
    for (int i = 0; i < count; i++) {
        text += (i == 0 ? "" : ",") + object;
    }
    return text + "]}";
}

} // namespace dcm_objects

#endif
