-- Wireshark dissector for the PelMo bootloader frames on UDP port 57998.
--
-- One datagram carries one frame: start byte (0xB5 request, 0xBA response), command or status byte,
-- 32-bit address, 16-bit length, payload, CRC-32/MPEG-2 of everything before it; all fields
-- little-endian. Load with:  tshark -X lua_script:pelmo.lua ...  or copy the file into the personal
-- plugins folder of Wireshark.

local PELMO_UDP_PORT = 57998
local REQUEST_START = 0xB5
local RESPONSE_START = 0xBA
local HEADER_SIZE = 8
local FRAME_OVERHEAD = 12

local pelmo = Proto("pelmo", "PelMo bootloader protocol")

local start_names = { [REQUEST_START] = "Request", [RESPONSE_START] = "Response" }

-- Same names the library's command_name() gives.
local command_names = {
  [0x01] = "READ_FACTORY", [0x02] = "READ_CALIB", [0x03] = "READ_CALIB_BACKUP",
  [0x04] = "READ_FW", [0x11] = "END_FACTORY", [0x12] = "END_CALIB",
  [0x13] = "END_CALIB_BACKUP", [0x14] = "END_FW", [0x24] = "FW_INFO",
  [0x2E] = "READ_CONTROL", [0x2F] = "BOOTLOADER_INFO", [0x41] = "ERASE_FACTORY",
  [0x42] = "ERASE_CALIB", [0x43] = "ERASE_CALIB_BACKUP", [0x44] = "ERASE_FW",
  [0x4E] = "CLEAR_CONTROL", [0x4F] = "RESTART", [0x81] = "WRITE_FACTORY",
  [0x82] = "WRITE_CALIB", [0x83] = "WRITE_CALIB_BACKUP", [0x84] = "WRITE_FW",
  [0x8F] = "BEGIN_WRITE", [0xC1] = "VERIFY_FACTORY", [0xC2] = "VERIFY_CALIB",
  [0xC3] = "VERIFY_CALIB_BACKUP", [0xC4] = "VERIFY_FW",
}

-- Statuses the device is known to send with a meaning of their own.
local status_names = {
  [0x00] = "success",
  [0xFD] = "out of range (end of data on reads)",
  [0xFA] = "firmware header not valid",
  [0xF9] = "firmware CRC not valid",
}

-- The host's result codes; a device status s arrives in the host as s - 256.
local result_names = {
  [0] = "RC_OK", [-1] = "RC_FAILED", [-3] = "RC_OUT_OF_RANGE", [-4] = "RC_ZERO_LENGTH",
  [-6] = "RC_BAD_HEADER", [-7] = "RC_BAD_CRC", [-10] = "RC_NO_DRIVER", [-11] = "RC_MISMATCH",
  [-14] = "RC_INCOMPLETE", [-19] = "RC_BAD_LENGTH", [-21] = "RC_NULL_POINTER",
  [-25] = "RC_TIMEOUT",
}

local f = {
  start = ProtoField.uint8("pelmo.start", "Start", base.HEX, start_names),
  command = ProtoField.uint8("pelmo.command", "Command", base.HEX, command_names),
  status = ProtoField.uint8("pelmo.status", "Status", base.HEX, status_names),
  result = ProtoField.int32("pelmo.result", "Result code", base.DEC, result_names),
  address = ProtoField.uint32("pelmo.address", "Address", base.HEX),
  length = ProtoField.uint16("pelmo.length", "Length", base.DEC),
  payload = ProtoField.bytes("pelmo.payload", "Payload"),
  crc = ProtoField.uint32("pelmo.crc", "CRC", base.HEX),
  crc_computed = ProtoField.uint32("pelmo.crc.computed", "Computed CRC", base.HEX),
  crc_good = ProtoField.bool("pelmo.crc.good", "CRC good"),
  request_command = ProtoField.uint8("pelmo.request_command", "Answers command", base.HEX,
                                     command_names),
  request_in = ProtoField.framenum("pelmo.request_in", "Request in frame", base.NONE,
                                   frametype.REQUEST),
  trailing = ProtoField.bytes("pelmo.trailing", "Bytes after the frame"),
}
pelmo.fields = f

local ex = {
  bad_crc = ProtoExpert.new("pelmo.crc.bad", "CRC mismatch", expert.group.CHECKSUM,
                            expert.severity.ERROR),
  short = ProtoExpert.new("pelmo.short", "Shorter than a frame", expert.group.MALFORMED,
                          expert.severity.ERROR),
  bad_start = ProtoExpert.new("pelmo.start.unknown", "Unknown start byte",
                              expert.group.MALFORMED, expert.severity.ERROR),
  bad_length = ProtoExpert.new("pelmo.length.bad", "Frame length disagrees with its length field",
                               expert.group.MALFORMED, expert.severity.ERROR),
  device_error = ProtoExpert.new("pelmo.status.error", "Device reports an error status",
                                 expert.group.RESPONSE_CODE, expert.severity.WARN),
  trailing = ProtoExpert.new("pelmo.trailing.bytes", "Bytes after the frame are ignored",
                             expert.group.PROTOCOL, expert.severity.NOTE),
}
pelmo.experts = { ex.bad_crc, ex.short, ex.bad_start, ex.bad_length, ex.device_error, ex.trailing }

-- CRC-32/MPEG-2: polynomial 0x04C11DB7, initial 0xFFFFFFFF, most significant bit first, no final
-- XOR. The bit library works on signed 32-bit values, so comparisons go through bit.tobit.
local crc_table = {}
for i = 0, 255 do
  local c = bit.lshift(i, 24)
  for _ = 1, 8 do
    if bit.band(c, 0x80000000) ~= 0 then
      c = bit.bxor(bit.lshift(c, 1), 0x04C11DB7)
    else
      c = bit.lshift(c, 1)
    end
  end
  crc_table[i] = c
end

local function crc32_mpeg2(bytes, count)
  local crc = bit.tobit(0xFFFFFFFF)
  for i = 0, count - 1 do
    local index = bit.bxor(bit.rshift(crc, 24), bytes:get_index(i))
    crc = bit.bxor(bit.lshift(crc, 8), crc_table[index])
  end
  return crc
end

-- Pairs responses with the request before them on the same address pair, decided on the first
-- pass and remembered by frame number so that later passes show the same answer.
local last_request = {}
local answers = {}

function pelmo.init()
  last_request = {}
  answers = {}
end

local function conversation_key(pinfo, request)
  local host, device = tostring(pinfo.src) .. ":" .. pinfo.src_port,
      tostring(pinfo.dst) .. ":" .. pinfo.dst_port
  if not request then
    host, device = device, host
  end
  return host .. ">" .. device
end

local function track(pinfo, start, code)
  if pinfo.visited then
    return answers[pinfo.number]
  end
  local request = start == REQUEST_START
  local key = conversation_key(pinfo, request)
  if request then
    last_request[key] = { code = code, number = pinfo.number }
  else
    answers[pinfo.number] = last_request[key]
  end
  return answers[pinfo.number]
end

function pelmo.dissector(tvb, pinfo, tree)
  local received = tvb:len()
  pinfo.cols.protocol = "PelMo"
  local root = tree:add(pelmo, tvb(), "PelMo bootloader frame")

  if received < FRAME_OVERHEAD then
    root:add_proto_expert_info(ex.short, received .. " bytes, a frame has at least 12")
    pinfo.cols.info = "Malformed PelMo frame (" .. received .. " bytes)"
    return received
  end

  local start = tvb(0, 1):uint()
  local code = tvb(1, 1):uint()
  local address = tvb(2, 4):le_uint()
  local length = tvb(6, 2):le_uint()
  local request = start == REQUEST_START
  local response = start == RESPONSE_START

  local start_item = root:add(f.start, tvb(0, 1))
  if not (request or response) then
    start_item:add_proto_expert_info(ex.bad_start)
  end

  local info
  if request then
    root:add(f.command, tvb(1, 1))
    info = "Request " .. (command_names[code] or string.format("0x%02X", code))
  else
    root:add(f.status, tvb(1, 1))
    local result = code == 0 and 0 or code - 256
    local result_item = root:add(f.result, tvb(1, 1), result)
    result_item:set_generated()
    if code ~= 0 then
      result_item:add_proto_expert_info(ex.device_error,
                                        "Device status " .. string.format("0x%02X", code) ..
                                            " (" .. result .. ")")
    end
    info = (response and "Response" or "Unknown") .. " status " .. string.format("0x%02X", code)
    if code ~= 0 then
      info = info .. " (" .. result .. ")"
    end
  end
  root:add_le(f.address, tvb(2, 4))
  root:add_le(f.length, tvb(6, 2))

  -- Requests with a code below 0x80 never carry a payload: their length field is the number of
  -- bytes they ask for. Everything else carries as many payload bytes as the field says.
  local carries_payload = not request or bit.band(code, 0x80) ~= 0
  local announced = carries_payload and (length + FRAME_OVERHEAD) or FRAME_OVERHEAD
  local taken = math.min(received, length + FRAME_OVERHEAD)
  local payload_count = taken - FRAME_OVERHEAD
  if payload_count > 0 then
    root:add(f.payload, tvb(HEADER_SIZE, payload_count))
  end

  local crc_offset = taken - 4
  local crc_item = root:add_le(f.crc, tvb(crc_offset, 4))
  local computed = crc32_mpeg2(tvb:bytes(0, crc_offset), crc_offset)
  local good = computed == bit.tobit(tvb(crc_offset, 4):le_uint())
  -- A negative Lua number does not fit a uint32 field; bring it back into 0..2^32-1 first.
  local computed_unsigned = computed < 0 and computed + 4294967296 or computed
  crc_item:add(f.crc_computed, tvb(crc_offset, 4), computed_unsigned):set_generated()
  crc_item:add(f.crc_good, tvb(crc_offset, 4), good):set_generated()
  if not good then
    crc_item:add_proto_expert_info(ex.bad_crc, string.format("CRC mismatch: computed 0x%08X",
                                                             computed_unsigned))
    info = info .. " [bad CRC]"
  end

  if taken ~= announced then
    root:add_proto_expert_info(ex.bad_length, string.format(
        "%d bytes taken as the frame, %d expected from the length field", taken, announced))
  end
  if received > taken then
    root:add(f.trailing, tvb(taken, received - taken))
        :add_proto_expert_info(ex.trailing, (received - taken) .. " bytes after the frame")
  end

  local asked = track(pinfo, start, code)
  if response and asked then
    root:add(f.request_command, asked.code):set_generated()
    root:add(f.request_in, asked.number):set_generated()
    info = info .. " to " .. (command_names[asked.code] or string.format("0x%02X", asked.code))
  end

  info = info .. string.format(" addr=0x%08X len=%d", address, length)
  pinfo.cols.info = info
  root:append_text(string.format(", %s, address 0x%08X, length %d",
                                 request and "request" or (response and "response" or "unknown"),
                                 address, length))
  return received
end

DissectorTable.get("udp.port"):add(PELMO_UDP_PORT, pelmo)
