// One disk of every class, with values that tell all members apart.
#pragma once

#include <string>

inline std::string SampleDisks()
{
    return R"(
{"device_name":"sda","serial_number":"SATA1","disk_type":"SSD_SATA","vendor_id":"ATA","model_number":"VSSD-1",
 "firmware_revision":"FW1","disk_capacity":480103981056,"sector_size":512,
 "health":{"power_on_hours":11,"SMART_list":[{"id":5,"threshold":10,"current_value":90,"worst":80},
                                              {"id":9,"threshold":0,"current_value":70}]}},
{"device_name":"sdb","serial_number":"SASOWN1","disk_type":"SSD_SAS","vendor_id":"velmar","model_number":"VS-1",
 "disk_capacity":"18446744073709551615","disk_media_type":"MLC",
 "health":{"power_on_hours":12,"wear":1234.5,"capacitance_id":242,"capacitance_status":3}},
{"device_name":"sdc","serial_number":"SASFOREIGN1","disk_type":"SSD_SAS","vendor_id":"OTHER","model_number":"OT-1",
 "disk_capacity":1,"health":{"ASC":93,"ASCQ":16}},
{"device_name":"sdd","serial_number":"HDD1","disk_type":"HDD_SAS","vendor_id":"SEAGATE","model_number":"ST-1",
 "disk_capacity":1200243695616,"sector_size":4096,"health":{"is_support_ie_log":false,"ASC":1,"ASCQ":2}},
{"device_name":"sde","serial_number":"NL1","disk_type":"HDD_NL_SAS","vendor_id":"TOSHIBA","model_number":"NL-1",
 "disk_capacity":2,"health":{"ASC":3,"ASCQ":4}},
{"device_name":"sdf","serial_number":"SATAHDD1","disk_type":"HDD_SATA","vendor_id":"ATA","model_number":"HD-1",
 "disk_capacity":3,"health":{"ASC":5,"ASCQ":6}},
{"device_name":"nvme0","serial_number":"NVME1","disk_type":"SSD_NVMe","vendor_id":"0x1f7c","model_number":"VN-1",
 "disk_capacity":3200631791616,"pci_address":"0000:81:00.0","slot_id":4,"health":{"wear":777,"critical_warning":5}},
{"device_name":"nvme1","serial_number":"NVME2","disk_type":"SSD_NVMe","vendor_id":"VELMAR","model_number":"VN-2",
 "disk_capacity":4,"pci_address":"0000:82:00.0"})";
}

inline std::string Sample(const std::string &more = "")
{
    return "{\"disks\":[" + SampleDisks() + "]" + more + "}";
}
