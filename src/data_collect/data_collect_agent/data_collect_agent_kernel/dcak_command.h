/**
 * @file dcak_command.h
 * @brief The buffers of one SCSI or ATA command. C++ sources only.
 */
#ifndef DCAK_COMMAND_H
#define DCAK_COMMAND_H

#include <array>

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_scsi.h"

/** Everything but the data, which the caller clears: what a disk does not return must not be stray memory. */
struct DcakCommand {
    std::array<uint8_t, DCAK_CDB_SIZE> cdb{};
    std::array<uint8_t, DCAK_SENSE_SIZE> sense{};
    ScsiIoParam param{};
    sg_io_hdr_t hdr{};

    explicit DcakCommand(uint8_t *data) noexcept
    {
        param.cdb = cdb.data();
        param.data = data;
        param.sense = sense.data();
    }
};

#endif
