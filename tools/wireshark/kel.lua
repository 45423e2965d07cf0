-- Wireshark dissector for the KEL board's TCP protocol (docs/protocol.md): a stream of
-- 16-byte frames, four little-endian 32-bit words each. A frame whose first word has bit 31
-- set is a command frame (command, value1..3); any other is a CAN data frame (id, info word,
-- eight data bytes).
--
-- Use:  wireshark -X lua_script:tools/wireshark/kel.lua
--       tshark -X lua_script:tools/wireshark/kel.lua -r capture.pcapng -Y kel
-- or copy the file to ~/.local/lib/wireshark/plugins/. It decodes TCP ports 27015-27018
-- (base port + channel); Preferences > Protocols > KEL takes other ports.

local kel = Proto("kel", "KEL board protocol")

local FRAME_SIZE = 16

local command_names = {
  [0x80000100] = "SET_OUT",
  [0x80000101] = "CLR_OUT",
  [0x80000102] = "TOGGLE_OUT",
  [0x80000110] = "BUZZER",
  [0x80000210] = "LED_CTRL",
  [0x80002001] = "MEASURE_1",
  [0x80002002] = "MEASURE_2",
  [0x80002003] = "MEASURE_3",
  [0x80002004] = "MEASURE_4",
  [0x80002100] = "GET_MEAS",
  [0x80004800] = "GET_STATUS",
  [0x80004801] = "STATUS_1",
  [0x80004802] = "STATUS_2",
  [0x80004803] = "STATUS_3",
  [0x80004804] = "STATUS_4",
  [0x80004810] = "CLR_EVENTS",
  [0x80005000] = "OUTPUTS",
  [0x80005500] = "ESC_DOWN",
  [0x80005501] = "SHUTDOWN",
  [0x80005502] = "ESC_UP",
  [0x80010000] = "RESET",
  [0x80010001] = "SET_BAUD",
  [0x80010003] = "CAN_INT",
  [0x80010004] = "CAN_FILTER",
  [0x80010005] = "BAUDRATE",
  [0x81010002] = "NECNT",
  [0x81010003] = "NFCR",
  [0x81010004] = "NSR",
  [0x81010005] = "GET_BAUD",
  [0x81010006] = "CAN_FILTER",
  [0xFFFFFFFF] = "INTERNAL",
}

local internal_names = {
  [0] = "read debug state",
  [1] = "set debug state",
  [2] = "read firmware version",
  [3] = "read service version",
  [7] = "remote trace on or off",
  [0x80005500] = "escape key down event",
  [0x80005501] = "shut-down event",
  [0x80005502] = "escape key up event",
}

local baud_names = {
  [1] = "100 kbaud", [2] = "125 kbaud", [3] = "250 kbaud", [4] = "500 kbaud", [5] = "1 Mbaud",
}

local f = kel.fields
f.command = ProtoField.uint32("kel.command", "Command", base.HEX, command_names)
f.value1 = ProtoField.uint32("kel.value1", "Value 1", base.HEX)
f.value2 = ProtoField.uint32("kel.value2", "Value 2", base.HEX)
f.value3 = ProtoField.uint32("kel.value3", "Value 3", base.HEX)
f.internal = ProtoField.uint32("kel.internal", "Internal command", base.HEX, internal_names)
f.baud = ProtoField.uint32("kel.baud", "Bit-rate index", base.DEC, baud_names)
f.pins = ProtoField.uint16("kel.pins", "Pins", base.HEX)
f.can_id = ProtoField.uint32("kel.can.id", "Identifier", base.HEX, nil, 0x1FFFFFFF)
f.info = ProtoField.uint32("kel.can.info", "Info word", base.HEX)
f.dlc = ProtoField.uint32("kel.can.dlc", "DLC", base.DEC, nil, 0x000000FF)
f.channel = ProtoField.uint32("kel.can.channel", "Channel", base.DEC, nil, 0x00000300)
f.extended = ProtoField.bool("kel.can.extended", "Extended identifier", 32, nil, 0x00008000)
f.flag_r = ProtoField.uint32("kel.can.flag_r", "flag_r", base.HEX, nil, 0x00FF0000)
f.remote = ProtoField.bool("kel.can.remote", "Remote request", 32, nil, 0x00010000)
f.flag_s = ProtoField.uint32("kel.can.flag_s", "flag_s", base.HEX, nil, 0xFF000000)
f.echo_request = ProtoField.bool("kel.can.echo_request", "Echo requested", 32, nil, 0x01000000)
f.echo = ProtoField.bool("kel.can.echo", "Echo", 32, nil, 0x02000000)
f.data = ProtoField.bytes("kel.can.data", "Data", base.SPACE)

kel.prefs.ports = Pref.range("TCP ports", "27015-27018",
  "The board's TCP ports: base port + channel 0-3, and any a proxy listens on", 65535)

local function command_name(code)
  return command_names[code] or "???"
end

local function dissect_command(range, tree)
  local code = range(0, 4):le_uint()
  local v2 = range(8, 4):le_uint()
  local name = command_name(code)
  local item = tree:add(kel, range, string.format("Command %s (0x%08X)", name, code))
  item:add_le(f.command, range(0, 4))
  item:add_le(f.value1, range(4, 4))
  item:add_le(f.value2, range(8, 4))
  item:add_le(f.value3, range(12, 4))
  if code == 0xFFFFFFFF then
    item:add_le(f.internal, range(8, 4))
    return string.format("INTERNAL %s", internal_names[v2] or string.format("0x%X", v2))
  elseif code == 0x80010001 or code == 0x80010005 then
    item:add_le(f.baud, range(8, 4))
    return string.format("%s %s", name, baud_names[v2] or tostring(v2))
  elseif code >= 0x80000100 and code <= 0x80000102 or code == 0x80005000 then
    item:add_le(f.pins, range(6, 2))
  end
  return name
end

local function dissect_can(range, tree)
  local id = range(0, 4):le_uint()
  local info = range(4, 4):le_uint()
  local dlc = bit.band(info, 0xFF)
  local channel = bit.band(bit.rshift(info, 8), 3)
  local extended = bit.band(info, 0x8000) ~= 0
  local remote = bit.band(info, 0x10000) ~= 0
  local echo = bit.band(info, 0x2000000) ~= 0
  local shown = math.min(dlc, 8)
  local item = tree:add(kel, range, string.format("CAN frame 0x%X, DLC %d, channel %d", id, dlc, channel))
  item:add_le(f.can_id, range(0, 4))
  local info_item = item:add_le(f.info, range(4, 4))
  info_item:add_le(f.dlc, range(4, 4))
  info_item:add_le(f.channel, range(4, 4))
  info_item:add_le(f.extended, range(4, 4))
  info_item:add_le(f.flag_r, range(4, 4))
  info_item:add_le(f.remote, range(4, 4))
  info_item:add_le(f.flag_s, range(4, 4))
  info_item:add_le(f.echo_request, range(4, 4))
  info_item:add_le(f.echo, range(4, 4))
  if shown > 0 and not remote then item:add(f.data, range(8, shown)) end

  local text = string.format(extended and "CAN 0x%08X" or "CAN 0x%03X", id)
  text = text .. string.format(" ch%d", channel)
  if remote then
    text = text .. string.format(" RTR dlc %d", dlc)
  else
    text = text .. " [" .. (shown > 0 and range(8, shown):bytes():tohex(false, " ") or "") .. "]"
  end
  if echo then text = text .. " echo" end
  return text
end

function kel.dissector(tvb, pinfo, tree)
  local length = tvb:len()
  local whole = length - length % FRAME_SIZE
  if whole < length then
    -- A frame split across segments: ask TCP for the rest of it.
    pinfo.desegment_offset = whole
    pinfo.desegment_len = FRAME_SIZE - (length - whole)
  end
  if whole == 0 then return end

  pinfo.cols.protocol = "KEL"
  local to_board = pinfo.dst_port == pinfo.match_uint
  local texts = {}
  for offset = 0, whole - FRAME_SIZE, FRAME_SIZE do
    local range = tvb(offset, FRAME_SIZE)
    if bit.band(range(3, 1):uint(), 0x80) ~= 0 then
      texts[#texts + 1] = dissect_command(range, tree)
    else
      texts[#texts + 1] = dissect_can(range, tree)
    end
  end
  -- TCP fences the column between the frames of one segment; later calls append to it.
  local text = table.concat(texts, ", ")
  local shown = tostring(pinfo.cols.info)
  if shown:find("^to board: ") or shown:find("^from board: ") then
    pinfo.cols.info:append(", " .. text)
  else
    pinfo.cols.info = (to_board and "to board: " or "from board: ") .. text
  end
  return whole
end

local registered = nil

local function register_ports()
  local tcp = DissectorTable.get("tcp.port")
  if registered then tcp:remove(registered, kel) end
  registered = kel.prefs.ports
  tcp:add(registered, kel)
end

kel.prefs_changed = register_ports
register_ports()
