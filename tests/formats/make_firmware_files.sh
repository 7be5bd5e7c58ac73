#!/usr/bin/env bash
# Builds one small firmware image with real toolchains and converts it with real tools, for the
# format readers to be checked against byte for byte (toolchain_files_test.cpp).
#   tests/formats/make_firmware_files.sh OUT_DIR
# The image: code across a 64 KiB boundary at 0x08000000, read-only data after a gap, and
# initialised data whose load (physical) address is in flash after another gap while its run
# (virtual) address is in RAM, followed by zero-initialised RAM in the same segment. The same
# assembly is linked for ARM (ELF32), i386 (ELF32) and x86-64 (ELF64); `objcopy -O binary` of each
# is the reference the readers' placed images must equal.
# A missing tool: exit 77 (skipped; the tests then skip too), or 1 when PELMO_E2E_STRICT=1 (as in
# CI).
set -euo pipefail

out="${1:?usage: make_firmware_files.sh OUT_DIR}"
rm -rf "$out"
mkdir -p "$out"
cd "$out"

# The tests skip when they find SKIPPED here.
tools=(arm-none-eabi-as arm-none-eabi-ld arm-none-eabi-objcopy as ld objcopy srec_cat)
for tool in "${tools[@]}"; do
  if ! command -v "$tool" >/dev/null 2>&1; then
    echo "$tool is missing (Debian: binutils, binutils-arm-none-eabi, srecord)" | tee SKIPPED >&2
    [[ "${PELMO_E2E_STRICT:-}" == 1 ]] && exit 1
    exit 77
  fi
done

# Bytes that differ from their neighbours, so a misplaced run shows; some 0xFF among them, so a
# reader cannot tell data from a gap by its value.
bytes() {  # COUNT SEED
  awk -v n="$1" -v s="$2" 'BEGIN {
    for (i = 0; i < n; i += 16) {
      line = "  .byte ";
      for (j = i; j < i + 16 && j < n; j++) {
        s = (s * 1103515245 + 12345) % 2147483648;
        v = int(s / 65536) % 256;
        if (j % 97 == 0) v = 255;
        line = line (j > i ? ", " : "") v;
      }
      print line;
    }
  }'
}
{
  echo '  .section .text, "ax"'
  bytes 3000 1
  echo '  .fill 70000, 1, 0x5A'
  bytes 501 2
  echo '  .section .rodata, "a"'
  bytes 1000 3
  echo '  .section .data, "aw"'
  bytes 77 4
  echo '  .section .bss, "aw", %nobits'
  echo '  .fill 256, 1, 0'
} >fw.s
# No FILEHDR or PHDRS in the program headers: the ELF headers are not part of the image.
cat >fw.ld <<'LD'
PHDRS { text PT_LOAD; rodata PT_LOAD; data PT_LOAD; }
SECTIONS {
  .text 0x08000000 : { *(.text) } :text
  .rodata 0x08020000 : { *(.rodata) } :rodata
  .data 0x20000000 : AT(0x08020400) { *(.data) } :data
  .bss : { *(.bss) } :data
  /DISCARD/ : { *(.ARM.attributes) *(.note*) *(.comment) }
}
LD

arm-none-eabi-as fw.s -o arm.o
arm-none-eabi-ld -T fw.ld arm.o -o arm.elf
as --32 fw.s -o i386.o
ld -m elf_i386 -T fw.ld i386.o -o i386.elf
as fw.s -o x86_64.o
ld -T fw.ld x86_64.o -o x86_64.elf
arm-none-eabi-objcopy -O binary --gap-fill 0xFF arm.elf arm.bin
objcopy -O binary --gap-fill 0xFF i386.elf i386.bin
objcopy -O binary --gap-fill 0xFF x86_64.elf x86_64.bin
head -c 65536 arm.bin >low.bin  # the part of the image that 16-bit addresses reach

# objcopy: Intel HEX, S-records (S3, then forced S3 with short lines), S1 and S2 records after
# moving the image down to addresses 16 and 24 bits hold.
arm-none-eabi-objcopy -O ihex arm.elf objcopy.hex
arm-none-eabi-objcopy -O srec arm.elf objcopy.srec
arm-none-eabi-objcopy -O srec --srec-forceS3 --srec-len 17 arm.elf objcopy-forced.s37
arm-none-eabi-objcopy -O srec --change-addresses -0x07800000 arm.elf objcopy.s28

# srec_cat: S19, S28 and S37 with chosen record sizes, and Intel HEX with linear and with segment
# addresses, each from another tool's output so that the gaps stay gaps.
srec_cat objcopy.srec -motorola -crop 0x08000000 0x08010000 -offset -0x08000000 \
  -o srec_cat.s19 -motorola -address-length=2 -Output_Block_Size 16
srec_cat objcopy.hex -intel -offset -0x07800000 \
  -o srec_cat.s28 -motorola -address-length=3 -Output_Block_Size 250
srec_cat objcopy.hex -intel -o srec_cat.s37 -motorola -address-length=4 -Output_Block_Size 33
srec_cat objcopy.srec -motorola -o srec_cat.hex -intel -Output_Block_Size 64
srec_cat objcopy.srec -motorola -offset -0x07FF0000 -o srec_cat-segment.hex -intel \
  -address-length=3
# Text after the end record is never read.
for file in objcopy.hex objcopy.srec; do
  { cat "$file"; echo "not a record"; } >"after-end.${file##*.}"
done
