#!/bin/sh
# /init of the proving ground's guest: loads the storage drivers, then reads
# every disk with smartctl, sg3_utils, nvme-cli and hwc_cli and writes what
# they print to the second serial port, each output framed by
#   @@BEGIN <name>   ...   @@END <name> rc=<status>
# so the host can take the outputs apart while kernel messages go to the
# console on the first port. Powers the guest off at the end.
export PATH=/bin:/sbin:/opt/hwc
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
mount -t tmpfs tmpfs /tmp

arg() { sed -n "s/.*\\b$1=\\([^ ]*\\).*/\\1/p" /proc/cmdline; }
out=/dev/ttyS1
stty -F $out raw -echo 2>/dev/null

section() {  # section NAME COMMAND...
  name=$1; shift
  echo "@@BEGIN $name" > $out
  # Each command has its own time limit, so one that hangs costs a section,
  # not the run; the host's watchdog still bounds the whole guest.
  timeout ${limit:-120} "$@" > /tmp/section.out 2>&1
  rc=$?
  cat /tmp/section.out > $out
  echo "" > $out
  echo "@@END $name rc=$rc at $(cut -d" " -f1 /proc/uptime)" > $out
}

# The same, run now into /tmp/s and written out later by emit: the tests of
# different disks run side by side, one queue per CPU.
record() {  # record NAME COMMAND...
  name=$1; shift
  timeout ${limit:-240} "$@" > "/tmp/s/$name.out" 2>&1
  echo "$? $(cut -d" " -f1 /proc/uptime)" > "/tmp/s/$name.rc"
}
emit() {  # emit NAME
  echo "@@BEGIN $1" > $out
  cat "/tmp/s/$1.out" > $out
  echo "" > $out
  set -- "$1" $(cat "/tmp/s/$1.rc")
  echo "@@END $1 rc=$2 at $3" > $out
}
mkdir -p /tmp/s

echo "@@GUEST up $(cat /proc/uptime)" > $out
for m in ahci nvme virtio_pci virtio_scsi sd_mod sg usb_storage xhci_pci; do
  modprobe $m
done
# scsi_debug: a disk with log pages, the informational-exceptions page and
# a medium-error range, which QEMU's own SCSI disk does not have. Its
# medium-error range only applies with opts=2.
modprobe scsi_debug dev_size_mb=$(arg sdebug.mb) sector_size=512 opts=2 delay=0 \
  medium_error_start=$(arg sdebug.bad) medium_error_count=$(arg sdebug.badcount) \
  inq_vendor=Linux inq_product=scsi_debug

want=$(arg hwc.disks)
i=0
while [ $i -lt 150 ]; do
  have=$(ls -d /sys/block/sd* /sys/block/nvme*n* 2>/dev/null | wc -l)
  [ "$have" -ge "$want" ] && break
  sleep 0.2
  i=$((i + 1))
done
echo "@@GUEST disks $have of $want after $(cat /proc/uptime)" > $out

section uname uname -a
section sysblock sh -c 'for d in /sys/block/sd* /sys/block/nvme*n*; do
  n=$(basename $d)
  echo "$n $(cat $d/size) $(cat $d/queue/logical_block_size) $(cat $d/queue/physical_block_size) $(cat $d/queue/rotational) $(readlink -f $d/device)"
done'

for d in /sys/block/sd* /sys/block/nvme*n*; do
  n=$(basename $d)
  dev=/dev/$n
  case $n in
    nvme*)
      ctrl=/dev/${n%n*}
      section "smartctl $n" smartctl -x --json $dev
      section "nvme-id-ctrl $n" nvme id-ctrl -o json $ctrl
      section "nvme-id-ns $n" nvme id-ns -o json $dev
      section "nvme-smart-log $n" nvme smart-log -o json $ctrl
      ;;
    *)
      if readlink -f $d/device | grep -q /usb; then
        # QEMU's USB bridge passes no ATA commands: SCSI only.
        section "smartctl $n" smartctl -x --json -d scsi $dev
      else
        section "smartctl $n" smartctl -x --json $dev
      fi
      section "sg_inq $n" sg_inq $dev
      section "sg_vpd-sn $n" sg_vpd -p sn $dev
      section "sg_vpd-bdc $n" sg_vpd -p bdc $dev
      section "sg_readcap $n" sg_readcap -l $dev
      section "sg_logs $n" sg_logs -a $dev
      # The module's own health CDBs, byte for byte: MODE SENSE(6) of the
      # exceptions control page and LOG SENSE of the exceptions log page,
      # both with the allocation length left at 0.
      section "module-mode-sense $n" sg_raw -r 32 $dev 1a 08 1c 00 00 00
      section "module-log-sense $n" sg_raw -r 252 $dev 4d 00 6f 00 00 00 00 00 00 00
      ;;
  esac
done

section "hwc-list" hwc_cli -Mstorage --machine host --list --json
cp /tmp/section.out /tmp/list.json
phase=$(arg hwc.phase)
if [ "$phase" != "identity" ]; then
  count=$(grep -c '"key": "UDI"' /tmp/list.json)
  cpus=$(grep -c ^processor /proc/cpuinfo)
  # One queue of disks that every CPU's worker takes the next disk from as
  # it comes free; USB disks first, as they are the slowest under TCG (about
  # a third of all the tests' time), so that no worker is left with one at
  # the end.
  awk '/"parent": "USB_DRIVES"/ { usb = 1 }
       /"index": [0-9]+/ { n = $0; gsub(/[^0-9]/, "", n); if (usb) print n; else rest = rest n "\n"; usb = 0 }
       END { printf "%s", rest }' /tmp/list.json > /tmp/queue
  echo 0 > /tmp/queue.next
  take() {  # the next disk of the queue, nothing when it is empty
    while ! mkdir /tmp/queue.lock 2>/dev/null; do sleep 0.1; done
    k=$(cat /tmp/queue.next)
    echo $((k + 1)) > /tmp/queue.next
    rmdir /tmp/queue.lock
    sed -n "$((k + 1))p" /tmp/queue
  }
  q=0
  while [ $q -lt "$cpus" ]; do
    (
      while j=$(take); [ -n "$j" ]; do
        record "hwc-tests $j" hwc_cli -Mstorage --machine host -Q -E --answer 1 --json $j
        record "hwc-scan $j" hwc_cli -Mstorage --machine host --recover scan --json $j
      done
    ) &
    q=$((q + 1))
  done
  wait
  j=0
  while [ $j -lt "$count" ]; do
    emit "hwc-tests $j"
    emit "hwc-scan $j"
    j=$((j + 1))
  done
  # The repair, asked for the copy of the disk with medium errors only (its
  # index found by its serial in the listing): the tool repairs internal ATA
  # disks only, so hwc_cli must refuse it and write nothing; a second scan of
  # the copy shows what is left.
  copy=$(awk -v serial="$(arg hwc.copy)" '
    /"key": "UDI"/ { n++ }
    index($0, "\"value\": \"" serial "\"") { print n - 1; exit }' /tmp/list.json)
  if [ -n "$copy" ]; then
    section "hwc-repair $copy" hwc_cli -Mstorage --machine host --recover repair --answer 1 --json $copy
    section "hwc-rescan $copy" hwc_cli -Mstorage --machine host --recover scan --json $copy
  fi
fi

echo "@@GUEST done $(cat /proc/uptime)" > $out
sync
poweroff -f
