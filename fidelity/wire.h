/* The exchange between the SG_IO preload library (C) and the disk server
 * (C++): one request and one answer per connection on a Unix stream socket.
 * Both ends are built from this header on the same machine, so fields travel
 * in host byte order.
 *
 * Request: simdisk_wire_request, then name_length bytes of disk name (or of
 *          control text), cdb_length CDB bytes, data_out_length bytes of
 *          data-out.
 * Answer:  simdisk_wire_answer, then sense_length sense bytes and
 *          data_in_length bytes of data-in (what the device moved, at most
 *          the host's transfer length).
 * completion is the simulated link's: 0 done, 1 time-out, 2 no device, 3
 * transport error; SIMDISK_WIRE_NO_DISK when the server has no such disk
 * (or refuses a control line, whose answer text is then the reason). */
#ifndef FIDELITY_WIRE_H
#define FIDELITY_WIRE_H

#include <stdint.h>

#define SIMDISK_WIRE_MAGIC 0x5349444Bu /* "SIDK" */
#define SIMDISK_WIRE_SCSI 1u
#define SIMDISK_WIRE_CONTROL 2u
#define SIMDISK_WIRE_NONE 0u
#define SIMDISK_WIRE_TO_DEVICE 1u
#define SIMDISK_WIRE_FROM_DEVICE 2u
#define SIMDISK_WIRE_NO_DISK 255u
#define SIMDISK_WIRE_MAX_NAME 4096u
#define SIMDISK_WIRE_MAX_DATA (64u << 20)

struct simdisk_wire_request {
  uint32_t magic;
  uint32_t kind;
  uint32_t name_length;
  uint32_t cdb_length;
  uint32_t direction;
  uint32_t transfer_length; /* the host's buffer, in bytes */
  uint32_t timeout_ms;
  uint32_t data_out_length;
};

struct simdisk_wire_answer {
  uint32_t magic;
  uint32_t completion;
  uint32_t status;
  uint32_t sense_length;
  uint32_t data_in_length;
};

#endif
