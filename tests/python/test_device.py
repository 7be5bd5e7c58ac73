"""Every Device method against pelmo-device, over UDP and a pty: what it returns, and what
reached the device (its request log and the areas it keeps)."""

from __future__ import annotations

import struct
import subprocess

import pytest

from conftest import pelmo, sample_firmware

FW_ADDRESS = 0x08000000


def test_firmware_operations(link):
    device_process = link()
    image = sample_firmware(8192)
    seen = []
    with device_process.connect() as device:
        assert device.info().firmware is None  # an erased device holds no valid firmware
        device_process.codes()
        flashed = device.flash(image, progress=lambda *args: seen.append(args))
        assert (flashed.bytes, flashed.skipped) == (len(image), False)
        codes = device_process.codes()
        assert [codes.index(code) for code in ("ERASE_FW", "WRITE_FW", "END_FW", "VERIFY_FW")] == sorted(
            codes.index(code) for code in ("ERASE_FW", "WRITE_FW", "END_FW", "VERIFY_FW"))
        assert device_process.stored("firmware")[8:] == image[8:]
        steps = [step for name, step, _, _ in seen]
        assert {name for name, _, _, _ in seen} == {device.name}
        assert steps.index("erase") < steps.index("write") < steps.index("verify")
        writes = [(done, total) for _, step, done, total in seen if step == "write"]
        assert writes[-1] == (len(image), len(image))
        assert [done for done, _ in writes] == sorted(done for done, _ in writes)

        firmware = device.info().firmware
        assert (firmware.name, firmware.version, firmware.size, firmware.debug) == (
            "DemoFW", "1.02.003", len(image), False)
        assert firmware == device.firmware_info()
        stored = device.read()
        assert (stored[8:], struct.unpack_from("<I", stored)[0]) == (image[8:], len(image))

        assert device.flash(pelmo.Image.from_bytes(image), skip_identical=True).skipped
        assert "WRITE_FW" not in device_process.codes()
        device.verify(image)
        assert {"VERIFY_FW"} == set(device_process.codes()) - {"FW_INFO", "BOOTLOADER_INFO"}

        device.erase()
        assert device.info().firmware is None and "ERASE_FW" in device_process.codes()
        device.write(image)
        assert "ERASE_FW" not in device_process.codes()
        device.verify(image)


def test_bootloader_info_and_control(simulator):
    device_process = simulator("--bl-name", "RigBoot", "--bl-version", "2.5", "--fw-max-size", "65536",
                               "--control-version", "3")
    with device_process.connect() as device:
        boot = device.bootloader_info()
        assert (boot.name, boot.version, boot.fw_address, boot.fw_max_size) == (
            "RigBoot", "2.05", FW_ADDRESS, 65536)
        assert device.read_control() == pelmo.ControlRecord(struct_version=3, reset_count=0)
        device.clear_control()
        assert device_process.codes()[-1] == "CLEAR_CONTROL"


TABLE = pelmo.FactoryTable(type="PelmoBox", sn="SN-0042 A", hw=7, modif=3, mac="0A:1B:2C:3D:4E:5F",
                           dhcp=False, ip_addr="192.168.1.15", ip_mask="255.255.255.0",
                           ip_gtw="192.168.1.1")


def test_factory_table(link):
    device_process = link()
    with device_process.connect() as device:
        device.write_factory(TABLE)
        stored = device_process.stored("factory")
        assert struct.unpack_from("<HH6B4B", stored, 24) == (3, 7, 0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0x5F,
                                                            192, 168, 1, 15)
        assert stored[54:62] == b"PelmoBox" and stored[86:95] == b"SN-0042 A"
        assert device.read_factory() == TABLE
        device.verify_factory(TABLE.to_text())
        with pytest.raises(pelmo.VerifyError):
            device.verify_factory(pelmo.FactoryTable(**{**TABLE.__dict__, "hw": 8}))
        device.erase_factory()
        assert device_process.stored("factory") == b""


@pytest.mark.parametrize("backup, area", [(False, "calib"), (True, "calib_backup")])
def test_calibration_tables(simulator, backup, area):
    device_process = simulator()
    data = bytes(range(256)) * 6
    with device_process.connect() as device:
        device.write_calibration(bytearray(data), backup=backup)
        assert device_process.stored(area) == data
        assert device.read_calibration(backup=backup) == data
        device.verify_calibration(data, backup=backup)
        with pytest.raises(pelmo.VerifyError):
            device.verify_calibration(data[:-1] + b"\0", backup=backup)
        device.erase_calibration(backup=backup)
        assert device_process.stored(area) == b""


def test_restart_closes_the_device(simulator):
    device_process = simulator()
    device = device_process.connect()
    device.restart()
    assert device_process.codes()[-1] == "RESTART"
    assert not device.is_open
    with pytest.raises(pelmo.LinkError):
        device.bootloader_info()


FACTORY_TEXTS = [
    # (text, the table or the error's words)
    (TABLE.to_text(), TABLE),
    ("sn: \"A\"\ntype: \"T\"\nhw: 1\nmodif: 2\nmac: 00:00:00:00:00:01\ndhcp: 1\nipv6_addr: 1.2.3.4.5.6\n"
     "ipv6_mask: 255.255.255.255.0.0\nipv6_gtw: 1.2.3.4.5.1\n",
     pelmo.FactoryTable("T", "A", 1, 2, "00:00:00:00:00:01", True, "1.2.3.4.5.6", "255.255.255.255.0.0",
                        "1.2.3.4.5.1")),
    (TABLE.to_text().replace("HW:         7", "HW:         70000"), "HW"),
    (TABLE.to_text().replace("SN:", "# SN:"), "SN: missing"),
    (TABLE.to_text().replace("IPV4_MASK:  255.255.255.0", "IPV6_MASK:  255.255.255.0.0.0"), "MASK"),
]


@pytest.mark.parametrize("text, expected", FACTORY_TEXTS, ids=["ipv4", "ipv6", "hw-range", "sn-missing", "mixed-forms"])
def test_factory_text(text, expected):
    if isinstance(expected, pelmo.FactoryTable):
        assert pelmo.FactoryTable.from_text(text) == expected
        assert pelmo.FactoryTable.from_text(expected.to_text()) == expected
        assert expected.ipv6 == ("IPV6_ADDR" in expected.to_text())
    else:
        with pytest.raises(pelmo.FactoryTableError, match=expected):
            pelmo.FactoryTable.from_text(text)


@pytest.mark.parametrize("changes, held", [
    ({"mac": "0a:1b:2c:3d:4e:5f", "dhcp": 1}, {"mac": "0A:1B:2C:3D:4E:5F", "dhcp": True}),
    ({"mac": "0A:1B:2C:3D:4E"}, "MAC"),
    ({"sn": "S" * 40}, "SN"),
    ({"ip_gtw": "1.2.3.4.5.6"}, "GTW"),
])
def test_factory_values_checked_when_made(changes, held):
    if isinstance(held, dict):
        assert pelmo.FactoryTable(**{**TABLE.__dict__, **changes}) == pelmo.FactoryTable(**{**TABLE.__dict__, **held})
    else:
        with pytest.raises(pelmo.FactoryTableError, match=held):
            pelmo.FactoryTable(**{**TABLE.__dict__, **changes})


def elf_file(data: bytes, address: int) -> bytes:
    """A 32-bit little-endian executable with one PT_LOAD segment holding `data` at `address`."""
    header = b"\x7fELF\x01\x01\x01" + bytes(9) + struct.pack(
        "<HHIIIIIHHHHHH", 2, 40, 1, address, 52, 0, 0, 52, 32, 1, 40, 0, 0)
    return header + struct.pack("<IIIIIIII", 1, 84, address, address, len(data), len(data), 5, 4) + data


def objcopy(data: bytes, folder, output_format: str, suffix: str) -> bytes:
    raw = folder / "objcopy-input.bin"
    raw.write_bytes(data)
    out = folder / f"objcopy-output{suffix}"
    subprocess.run(["objcopy", "-I", "binary", "-O", output_format, "--change-addresses", hex(FW_ADDRESS),
                    str(raw), str(out)], check=True, timeout=30)
    return out.read_bytes()


IMAGE_FILES = [
    # (file name, format, contents from the image, addressed)
    ("fw.bin", "raw", lambda image, folder: image, False),
    ("fw.hex", "intel-hex", lambda image, folder: objcopy(image, folder, "ihex", ".hex"), True),
    ("fw.s37", "s-record", lambda image, folder: objcopy(image, folder, "srec", ".s37"), True),
    ("fw.elf", "elf", lambda image, folder: elf_file(image, FW_ADDRESS), True),
]


@pytest.mark.parametrize("name, form, contents, addressed", IMAGE_FILES, ids=[row[0] for row in IMAGE_FILES])
def test_image_files_flash_to_the_area(simulator, tmp_path, name, form, contents, addressed):
    image = sample_firmware(4096, seed=5)
    (tmp_path / name).write_bytes(contents(image, tmp_path))
    loaded = pelmo.load_image(tmp_path / name)
    assert (loaded.format, loaded.data_bytes) == (form, len(image))
    assert b"".join(segment.data for segment in loaded.segments) == image
    assert loaded.segments[0].address == (FW_ADDRESS if addressed else 0)
    in_memory = pelmo.Image.from_bytes((tmp_path / name).read_bytes(), name.split(".")[1])
    assert (in_memory.format, in_memory.segments) == (form, loaded.segments)
    device_process = simulator()
    with device_process.connect() as device:
        device.flash(loaded)
    assert device_process.stored("firmware")[8:] == image[8:]
