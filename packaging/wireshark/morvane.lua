-- Wireshark and tshark read what goes between hosts and Morvane panels: docs/dissector.md
-- for its use, docs/internals/wire.md for the wire.

-- Of several copies this variable chooses one, by its path: a test's is not the installed one.
local chosen = os.getenv("MORVANE_DISSECTOR")
if chosen and "@" .. chosen ~= debug.getinfo(1, "S").source then
  return
end

-- Put in when the build is configured; in the source tree there is none.
local productionVendor = tonumber("@MORVANE_PRODUCTION_VENDOR_ID@") or 0

local isFirst, morvane = pcall(Proto, "morvane", "Morvane Panel")
if not isFirst then
  report_failure("morvane.lua: another copy is loaded already, " .. debug.getinfo(1, "S").source:sub(2) ..
    " is left out; MORVANE_DISSECTOR=PATH chooses one by its path")
  return
end

local knownIds = "dead:beef"
if productionVendor ~= 0 then
  knownIds = knownIds .. string.format(" %04x:beef", productionVendor)
end
morvane.prefs.ids = Pref.string("USB ids of panels", knownIds,
  "Vendor and product in hexadecimal, as in 1a2b:beef, with blanks between them")

local headerSize = 8
local recordHeaderSize = 3
local sliceHeaderSize = 7
local split = 16384 -- hosts without scatter-gather cut their transfers so
local lastType = 46
local chunkSize = 4096

local boards = { [0] = "none", [1] = "main MCU", [0x0F] = "servo MCU" }
local replies = {
  [0x00] = "invalid",
  [0x01] = "chunk written",
  [0x02] = "send again",
  [0xF0] = "write failed",
  [0xF1] = "erase failed",
  [0xF2] = "failed, send again",
}
local typeNames = {} -- of records; those that only the application and the panel know have none
for type = 2, lastType - 1 do
  typeNames[type] = "Application record"
end
for type, name in pairs({
  [0] = "Device information",
  [1] = "Device information request",
  [38] = "LCD slice",
  [40] = "Firmware reply",
  [41] = "Firmware request",
  [44] = "Firmware chunk",
  [lastType] = "LCD slice, run-length",
}) do
  typeNames[type] = name
end
-- Bits of a colour's parts, the lowest part of the code last.
local depths = { [1] = {}, [8] = { 3, 3, 2 }, [12] = { 4, 4, 4 }, [16] = { 5, 6, 5 }, [24] = { 8, 8, 8 } }

local fields = {
  packet = ProtoField.none("morvane.packet", "Packet"),
  length = ProtoField.uint16("morvane.length", "Length"),
  count = ProtoField.uint16("morvane.count", "Records"),
  device = ProtoField.uint32("morvane.device", "Device id", base.HEX),

  record = ProtoField.none("morvane.record", "Record"),
  type = ProtoField.uint8("morvane.type", "Type", base.DEC, typeNames),
  size = ProtoField.uint16("morvane.size", "Payload size"),
  payload = ProtoField.bytes("morvane.payload", "Payload"),

  -- For filters alone: whether a record is one of these.
  info = ProtoField.none("morvane.info", "Device information"),
  slice = ProtoField.none("morvane.slice", "LCD slice"),
  firmware = ProtoField.none("morvane.firmware", "Firmware upgrade"),

  description = ProtoField.string("morvane.info.description", "Description"),
  maxPacket = ProtoField.uint16("morvane.info.max_packet", "Largest packet"),
  reserved = ProtoField.uint8("morvane.info.reserved", "Reserved", base.HEX),
  infoRequest = ProtoField.uint32("morvane.info.request", "Request"),

  lcd = ProtoField.uint16("morvane.slice.lcd", "LCD"),
  x = ProtoField.uint8("morvane.slice.x", "Left column"),
  y = ProtoField.uint8("morvane.slice.y", "Top row"),
  width = ProtoField.uint8("morvane.slice.width", "Width"),
  rows = ProtoField.uint8("morvane.slice.rows", "Rows"),
  bits = ProtoField.uint8("morvane.slice.bits", "Bits per pixel"),
  data = ProtoField.bytes("morvane.slice.data", "Data"),
  row = ProtoField.uint8("morvane.slice.row", "Row"),
  pixels = ProtoField.string("morvane.slice.pixels", "Pixels"),
  run = ProtoField.none("morvane.slice.run", "Run"),
  runCount = ProtoField.uint8("morvane.slice.run.count", "Count"),
  runValue = ProtoField.uint24("morvane.slice.run.value", "Value", base.HEX),

  mainSize = ProtoField.uint32("morvane.firmware.main.size", "Main image, bytes"),
  mainCrc = ProtoField.uint32("morvane.firmware.main.crc", "Main image, CRC-32", base.HEX),
  servoSize = ProtoField.uint32("morvane.firmware.servo.size", "Servo image, bytes"),
  servoCrc = ProtoField.uint32("morvane.firmware.servo.crc", "Servo image, CRC-32", base.HEX),
  word = ProtoField.uint16("morvane.firmware.word", "Word", base.HEX),
  zeros = ProtoField.bytes("morvane.firmware.reserved", "Reserved"),
  board = ProtoField.uint8("morvane.firmware.board", "Board", base.DEC, boards),
  address = ProtoField.uint32("morvane.firmware.address", "Address", base.DEC_HEX),
  chunkLength = ProtoField.uint32("morvane.firmware.length", "Length"),
  chunk = ProtoField.bytes("morvane.firmware.data", "Data"),
  unused = ProtoField.bytes("morvane.firmware.unused", "Unused"),
  reply = ProtoField.uint8("morvane.firmware.reply", "Reply", base.HEX, replies),
  checksum = ProtoField.uint32("morvane.firmware.checksum", "Checksum", base.HEX),

  fragment = ProtoField.bytes("morvane.fragment", "Part of a packet"),
  wholeIn = ProtoField.framenum("morvane.fragment.whole_in", "Put together in"),
  partIn = ProtoField.framenum("morvane.fragment.part_in", "Part in"),

  unread = ProtoField.bytes("morvane.unread", "Behind a fault, and not read by the host"),
  malformed = ProtoField.string("morvane.malformed", "Malformed"),
  violation = ProtoField.string("morvane.violation", "Violation"),
  cut = ProtoField.uint32("morvane.cut", "Bytes that the capture does not hold"),
}
morvane.fields = fields

local malformedInfo = ProtoExpert.new("morvane.malformed.expert", "Malformed",
  expert.group.MALFORMED, expert.severity.ERROR)
local violationInfo = ProtoExpert.new("morvane.violation.expert", "Violation of the wire",
  expert.group.PROTOCOL, expert.severity.WARN)
local cutInfo = ProtoExpert.new("morvane.cut.expert", "Cut by the capture",
  expert.group.UNDECODED, expert.severity.NOTE)
local middleInfo = ProtoExpert.new("morvane.middle.expert", "The capture may begin in the middle of a packet",
  expert.group.COMMENTS_GROUP, expert.severity.NOTE)
morvane.experts = { malformedInfo, violationInfo, cutInfo, middleInfo }

-- A unit is what packets are read from, the data of a frame or what was put together of
-- several: `tvb` to point to, `bytes` as a string, `size` on the wire, of which the capture
-- may hold fewer; `base`, its place in the transfer; `toPanel`.

local function u16(bytes, at)
  local low, high = bytes:byte(at + 1, at + 2)
  return low + high * 256
end

local function u32(bytes, at)
  return u16(bytes, at) + u16(bytes, at + 2) * 65536
end

local function holds(unit, at, length)
  return at + length <= #unit.bytes
end

-- As much of it as the capture holds.
local function range(unit, at, length)
  local first = math.min(at, #unit.bytes)
  return unit.tvb(first, math.min(length, #unit.bytes - first))
end

local function number(count, thing)
  return string.format("%d %s%s", count, thing, count == 1 and "" or "s")
end

-- What is wrong, in panelsim's words.

local function isMalformed(state, tree, span, text)
  tree:add(fields.malformed, span, text):set_generated():add_proto_expert_info(malformedInfo, text)
  state.malformed = state.malformed or text
end

local function isViolation(state, tree, span, text)
  tree:add(fields.violation, span, text):set_generated():add_proto_expert_info(violationInfo, text)
  state.violation = state.violation or text
end

local function isCut(state, tree, unit, at, length)
  state.cut = true
  local missing = at + length - math.max(at, #unit.bytes)
  tree:add(fields.cut, range(unit, at, length), missing):set_generated()
    :add_proto_expert_info(cutInfo, "The capture holds only " .. (length - missing) .. " of " .. number(length, "byte"))
end

-- Pixels

-- Of the code's parts, each from 0 to all of its bits, to 0 to 255.
local function colourText(code, parts)
  local text = ""
  for i = 3, 1, -1 do
    local top = 2 ^ parts[i] - 1
    local part = code % (top + 1)
    code = math.floor(code / (top + 1))
    text = string.format("%02X", math.floor(part * 255 / top)) .. text
  end
  return text
end

local function pixelText(code, bits)
  if bits == 1 then
    return code ~= 0 and "#" or "."
  end
  return colourText(code, depths[bits])
end

local function joinPixels(texts, bits)
  return table.concat(texts, bits == 1 and "" or " ")
end

-- The code of the pixel whose bits begin at bit `at` of the bytes from `from` on.
local function packedCode(bytes, from, at, bits)
  local first = from + math.floor(at / 8)
  if bits == 1 then
    return math.floor(bytes:byte(first + 1) / 2 ^ (7 - at % 8)) % 2
  elseif bits == 8 then
    return bytes:byte(first + 1)
  elseif bits == 16 then
    return u16(bytes, first)
  end
  local window = bytes:byte(first + 1) * 256 + bytes:byte(first + 2)
  if bits == 12 then
    return at % 8 == 0 and math.floor(window / 16) or window % 4096
  end
  return window * 256 + bytes:byte(first + 3)
end

local function addRow(tree, span, slice, row, texts)
  local pixels, place = joinPixels(texts, slice.bits), (slice.y + row) % 256
  local item = tree:add(fields.pixels, span, pixels)
  item:set_text(string.format("Row %d: %s", place, pixels))
  item:add(fields.row, span, place):set_hidden() -- its line would stand between the picture's
  return item
end

local function showPackedRows(tree, unit, at, size, slice)
  local bits = slice.rows * slice.width * slice.bits
  if size ~= math.floor(bits / 8) then
    return string.format("%s of pixels, its size makes %d", number(size, "byte"), math.floor(bits / 8))
  end
  -- Only those of which all bits were sent and captured.
  local whole = math.floor(math.min(size, math.max(0, #unit.bytes - at)) * 8 / slice.bits)
  for row = 0, slice.rows - 1 do
    local first, past = row * slice.width, math.min((row + 1) * slice.width, whole)
    if first >= past then
      break
    end
    local texts = {}
    for pixel = first, past - 1 do
      texts[#texts + 1] = pixelText(packedCode(unit.bytes, at, pixel * slice.bits, slice.bits), slice.bits)
    end
    local begin = math.floor(first * slice.bits / 8)
    local item = addRow(tree, range(unit, at + begin, math.ceil(past * slice.bits / 8) - begin), slice, row, texts)
    if #texts < slice.width then
      item:append_text(string.format(" (%s of %d sent)", number(#texts, "pixel"), slice.width))
    end
  end
end

-- The runs behind a row's marker: where they end, and what is wrong with them.
local function readRuns(unit, at, past, width)
  local runs, done = {}, 0
  local place = function() return string.format(" after %d of %s", done, number(width, "pixel")) end
  while done < width do
    if at == past then
      return runs, at, "the data ends" .. place()
    elseif not holds(unit, at, 4) then
      return runs, at, nil, true
    end
    local count, high, middle, low = unit.bytes:byte(at + 1, at + 4)
    local value = (high * 256 + middle) * 256 + low
    if count == 255 and value == 0xFFFFFF then
      return runs, at, "a row marker" .. place()
    elseif count == 0 or count > width - done then
      return runs, at, string.format("a run of %d%s", count, place())
    end
    runs[#runs + 1] = { at = at, count = count, value = value }
    done = done + count
    at = at + 4
  end
  return runs, at
end

local function showRuns(item, unit, runs)
  for _, run in ipairs(runs) do
    local span = unit.tvb(run.at, 4)
    local word = item:add(fields.run, span)
    word:set_text(string.format("Run: %d of 0x%06X", run.count, run.value))
    word:add(fields.runCount, span(0, 1)):set_hidden()
    word:add(fields.runValue, span(1, 3)):set_hidden()
  end
end

local function textsOfRuns(runs, bits)
  local texts, codes = {}, 2 ^ bits
  for _, run in ipairs(runs) do
    -- Bits above the code do not count, but that any value is on where a pixel has one bit.
    local text = pixelText(bits == 1 and run.value or run.value % codes, bits)
    for _ = 1, run.count do
      texts[#texts + 1] = text
    end
  end
  return texts
end

-- What is wrong with the rows; those before it are shown.
local function showEncodedRows(tree, unit, at, size, slice)
  if size % 4 ~= 0 then
    return number(size, "byte") .. " of run-length words, a word has 4"
  end
  local past = at + size
  for row = 0, slice.rows - 1 do
    if at == past then
      return string.format("the data ends after %d of %s", row, number(slice.rows, "row"))
    elseif not holds(unit, at, 4) then
      return
    elseif u32(unit.bytes, at) ~= 0xFFFFFFFF then
      return "row " .. row .. " does not begin with a row marker"
    end
    local runs, rowEnd, wrong, cut = readRuns(unit, at + 4, past, slice.width)
    local item = addRow(tree, unit.tvb(at, rowEnd - at), slice, row, textsOfRuns(runs, slice.bits))
    showRuns(item, unit, runs)
    if wrong then
      return "row " .. row .. ": " .. wrong
    elseif cut then
      return
    end
    at = rowEnd
  end
  if at ~= past then
    return number(past - at, "byte") .. " behind the last of " .. number(slice.rows, "row")
  end
end

-- Records that both sides know. Each shows a payload of which the capture holds all but the
-- end of a slice, and returns what the frame's line says of it.

local function showSliceData(tree, unit, at, size, slice, isEncoded)
  if not depths[slice.bits] then
    return "the depths are 1, 8, 12, 16 and 24"
  elseif slice.width == 0 or slice.rows == 0 then
    return "it has no pixels"
  end
  local show = isEncoded and showEncodedRows or showPackedRows
  return show(tree, unit, at, size, slice)
end

local function showSlice(state, tree, unit, at, size, isEncoded)
  local slice = { lcd = u16(unit.bytes, at) }
  slice.x, slice.y, slice.width, slice.rows, slice.bits = unit.bytes:byte(at + 3, at + 7)
  tree:add_le(fields.lcd, unit.tvb(at, 2))
  for i, name in ipairs({ "x", "y", "width", "rows", "bits" }) do
    tree:add(fields[name], unit.tvb(at + 1 + i, 1))
  end
  local dataAt, dataSize = at + sliceHeaderSize, size - sliceHeaderSize
  local data = tree:add(fields.data, range(unit, dataAt, dataSize))
  local wrong = showSliceData(data, unit, dataAt, dataSize, slice, isEncoded)
  local place = string.format("at %d,%d", slice.x, slice.y)
  local extent = string.format("%dx%d", slice.width, slice.rows)
  if wrong then
    isMalformed(state, tree, range(unit, at, size),
      string.format("%s slice for LCD %d %s, %s, %s per pixel: %s", isEncoded and "encoded" or "raw", slice.lcd, place,
        extent, number(slice.bits, "bit"), wrong))
  end
  return string.format("Slice LCD %d, %s %s, %s%s", slice.lcd, extent, place,
    slice.bits == 1 and "" or number(slice.bits, "bit") .. ", ", isEncoded and "run-length" or "packed")
end

local function showPackedSlice(state, tree, unit, at, size)
  return showSlice(state, tree, unit, at, size, false)
end

local function showEncodedSlice(state, tree, unit, at, size)
  return showSlice(state, tree, unit, at, size, true)
end

local function showInformation(state, tree, unit, at)
  local description = unit.bytes:sub(at + 1, at + 80):gsub("\0.*", ""):gsub("[^\32-\126]", "?")
  tree:add(fields.description, unit.tvb(at, 80), description)
  tree:add_le(fields.maxPacket, unit.tvb(at + 80, 2))
  tree:add(fields.reserved, unit.tvb(at + 82, 1))
  state.maxPacket = u16(unit.bytes, at + 80)
  return string.format('Device information "%s", packets up to %d', description, state.maxPacket)
end

local function showInformationRequest(_, tree, unit, at)
  tree:add_le(fields.infoRequest, unit.tvb(at, 4))
  return typeNames[1]
end

-- The sum of the bytes before it.
local function showChecksum(state, tree, unit, at, size)
  local sum, checksum = 0, u32(unit.bytes, at + size - 4)
  for i = at + 1, at + size - 4 do
    sum = sum + unit.bytes:byte(i)
  end
  tree:add_le(fields.checksum, unit.tvb(at + size - 4, 4))
  if checksum ~= sum then
    isViolation(state, tree, unit.tvb(at + size - 4, 4),
      string.format("checksum 0x%08X, the bytes before it sum to 0x%08X", checksum, sum))
  end
end

local function showZeros(state, tree, unit, at, size)
  local span = unit.tvb(at, size)
  tree:add(fields.zeros, span)
  if unit.bytes:sub(at + 1, at + size):find("[^\0]") then
    isViolation(state, tree, span, "reserved bytes are not 0")
  end
end

local function imageText(name, size)
  return size == 0 and "no " .. name .. " image" or string.format("%s image of %s", name, number(size, "byte"))
end

local function showUpgradeRequest(state, tree, unit, at, size)
  showZeros(state, tree, unit, at, 10)
  tree:add_le(fields.mainSize, unit.tvb(at + 10, 4))
  tree:add_le(fields.mainCrc, unit.tvb(at + 14, 4))
  tree:add_le(fields.word, unit.tvb(at + 18, 2))
  local word = u16(unit.bytes, at + 18)
  if word ~= 0x3000 then
    isViolation(state, tree, unit.tvb(at + 18, 2), string.format("word 0x%04X, a panel expects 0x3000", word))
  end
  showZeros(state, tree, unit, at + 20, 2)
  tree:add_le(fields.servoSize, unit.tvb(at + 22, 4))
  tree:add_le(fields.servoCrc, unit.tvb(at + 26, 4))
  showChecksum(state, tree, unit, at, size)
  return string.format("Firmware request, %s, %s", imageText("main", u32(unit.bytes, at + 10)),
    imageText("servo", u32(unit.bytes, at + 22)))
end

local function boardText(board)
  return boards[board] or string.format("board %d", board)
end

local function showChunk(state, tree, unit, at, size)
  local board, address, length = unit.bytes:byte(at + 1), u32(unit.bytes, at + 1), u32(unit.bytes, at + 5)
  tree:add(fields.board, unit.tvb(at, 1))
  if board ~= 1 and board ~= 0x0F then
    isViolation(state, tree, unit.tvb(at, 1), string.format("board %d, there are 1 and 15", board))
  end
  tree:add_le(fields.address, unit.tvb(at + 1, 4))
  tree:add_le(fields.chunkLength, unit.tvb(at + 5, 4))
  local valid = math.min(length, chunkSize)
  tree:add(fields.chunk, unit.tvb(at + 9, valid))
  if valid < chunkSize then
    tree:add(fields.unused, unit.tvb(at + 9 + valid, chunkSize - valid))
  end
  if length == 0 or length > chunkSize then
    isViolation(state, tree, unit.tvb(at + 5, 4), string.format("chunk of %s, it has 1 to 4096", number(length, "byte")))
  end
  showChecksum(state, tree, unit, at, size)
  return string.format("Firmware chunk, %s at %d, %s", boardText(board), address, number(length, "byte"))
end

local function showReply(_, tree, unit, at)
  local reply, board = unit.bytes:byte(at + 1, at + 2)
  tree:add(fields.reply, unit.tvb(at, 1))
  tree:add(fields.board, unit.tvb(at + 1, 1))
  tree:add_le(fields.address, unit.tvb(at + 2, 4))
  tree:add_le(fields.chunkLength, unit.tvb(at + 6, 4))
  tree:add_le(fields.checksum, unit.tvb(at + 10, 4))
  local what = replies[reply] or string.format("unknown code 0x%02X", reply)
  if board == 0 then
    return "Firmware reply: " .. what
  end
  return string.format("Firmware reply: %s, %s at %d", what, boardText(board), u32(unit.bytes, at + 2))
end

-- By type: the size of the payload, exactly or (`atLeast`) of what is in front of data of any
-- length; which side sends it; what it is for filters; who shows it.
local layouts = {
  [0] = { size = 83, toPanel = false, kind = fields.info, show = showInformation },
  [1] = { size = 4, toPanel = true, kind = fields.info, show = showInformationRequest },
  [38] = { atLeast = sliceHeaderSize, toPanel = true, kind = fields.slice, show = showPackedSlice },
  [40] = { size = 14, toPanel = false, kind = fields.firmware, show = showReply },
  [41] = { size = 34, toPanel = true, kind = fields.firmware, show = showUpgradeRequest },
  [44] = { size = 13 + chunkSize, toPanel = true, kind = fields.firmware, show = showChunk },
  [46] = { atLeast = sliceHeaderSize, toPanel = true, kind = fields.slice, show = showEncodedSlice },
}

local function fits(layout, size)
  return size == layout.size or layout.atLeast and size >= layout.atLeast
end

local function wrongSize(type, size)
  if type == 38 or type == 46 then
    return string.format("%s slice of %s, its header has 7", type == 46 and "encoded" or "raw", number(size, "byte"))
  end
  return string.format("%s of %s, it has %d", typeNames[type]:lower(), number(size, "byte"), layouts[type].size)
end

-- What the frame's line says of a record.
local function showPayload(state, tree, unit, at, size, type)
  local layout = layouts[type]
  if layout and layout.toPanel == unit.toPanel then
    tree:add(layout.kind, range(unit, at, size)):set_hidden()
    if not fits(layout, size) then
      isMalformed(state, tree, range(unit, at, size), wrongSize(type, size))
    elseif holds(unit, at, layout.size or layout.atLeast) then
      return layout.show(state, tree, unit, at, size)
    end
  end
  if size > 0 then
    tree:add(fields.payload, range(unit, at, size))
  end
  return string.format("%s, %s", layout and typeNames[type] or "Record " .. type, number(size, "byte"))
end

local function showRecord(state, tree, unit, at, size)
  local type = unit.bytes:byte(at + 1)
  local item = tree:add(fields.record, range(unit, at, recordHeaderSize + size))
  item:add(fields.type, unit.tvb(at, 1))
  item:add_le(fields.size, unit.tvb(at + 1, 2))
  local text = showPayload(state, item, unit, at + recordHeaderSize, size, type)
  item:set_text(text)
  state.texts[#state.texts + 1] = text
  if not holds(unit, at, recordHeaderSize + size) then
    isCut(state, item, unit, at, recordHeaderSize + size)
  end
  return type
end

-- Packets

-- The records of the packet of `length` bytes that begins at `start`: how many there are, or
-- nothing where that can't be known; and whether that is for a fault.
local function showRecords(state, tree, unit, start, length)
  local at, past, count = start + headerSize, start + length, 0
  while at < past do
    local left = past - at
    if left < recordHeaderSize then
      isMalformed(state, tree, range(unit, at, left), string.format("byte %d: %s left in the packet of %s, a record header has 3",
        unit.base + at, number(left, "byte"), number(length, "byte")))
      return nil, true
    elseif not holds(unit, at, recordHeaderSize) then
      isCut(state, tree, unit, at, left)
      return
    end
    local type, size = unit.bytes:byte(at + 1), u16(unit.bytes, at + 1)
    if size > left - recordHeaderSize then
      isMalformed(state, tree, range(unit, at, left), string.format(
        "byte %d: record of type %d has %s of payload, its packet of %s has %d left",
        unit.base + at, type, number(size, "byte"), number(length, "byte"), left - recordHeaderSize))
      return nil, true
    end
    showRecord(state, tree, unit, at, size)
    if type == 46 and unit.toPanel and count > 0 then
      isViolation(state, tree, range(unit, at, recordHeaderSize), string.format(
        "byte %d: encoded slice behind %s, it is a packet's first", unit.base + at, number(count, "record")))
    end
    count = count + 1
    at = at + recordHeaderSize + size
  end
  return count
end

local function showHeader(tree, unit, at, length)
  local item = tree:add(fields.packet, range(unit, at, length))
  item:add_le(fields.length, unit.tvb(at, 2))
  item:add_le(fields.count, unit.tvb(at + 2, 2))
  item:add_le(fields.device, unit.tvb(at + 4, 4))
  return item
end

-- One that the unit holds whole. Whether its records were not what they should be.
local function showPacket(state, tree, unit, at, length)
  local span = range(unit, at, length)
  local item = showHeader(tree, unit, at, length)
  local announced, device = u16(unit.bytes, at + 2), u32(unit.bytes, at + 4)
  item:set_text(string.format("Packet: %s, %s", number(length, "byte"), number(announced, "record")))

  local place = unit.base + at
  if unit.toPanel then
    if place ~= 0 then
      isViolation(state, item, span, string.format("byte %d: a further packet, a transfer carries one", place))
    end
    if state.limit and length > state.limit then
      isViolation(state, item, unit.tvb(at, 2),
        string.format("byte %d: packet of %s, the limit is %d", place, number(length, "byte"), state.limit))
    end
    if device ~= 0 then
      isViolation(state, item, unit.tvb(at + 4, 4),
        string.format("byte %d: device id %.0f, a host sends 0", place + 4, device))
    end
    if length == headerSize and announced == 0 then
      isViolation(state, item, span, string.format("byte %d: packet without records", place))
    end
  end
  local count, isWrong = showRecords(state, item, unit, at, length)
  if count and count ~= announced then
    isViolation(state, item, unit.tvb(at + 2, 2),
      string.format("byte %d: packet counts %s, it holds %d", place, number(announced, "record"), count))
  end
  return isWrong
end

-- Those from `at` to `past`, where the unit ends, or a packet that another frame ends.
local function showPackets(state, tree, unit, at, past)
  while at < past do
    local left, place = past - at, unit.base + at
    local rest = range(unit, at, left)
    if not holds(unit, at, math.min(left, headerSize)) then
      isCut(state, tree, unit, at, left)
      return
    elseif left < headerSize then
      isMalformed(state, tree, rest, string.format("byte %d: %s%s, a packet header has 8", place, number(left, "byte"),
        place == 0 and "" or " behind the last packet"))
      return
    end
    local length = u16(unit.bytes, at)
    if length < headerSize then
      isMalformed(state, tree, rest,
        string.format("byte %d: packet length %d is less than its header of 8 bytes", place, length))
      return
    elseif length > left then
      local item = showHeader(tree, unit, at, left)
      item:set_text(string.format("Packet: %d of %s", left, number(length, "byte")))
      item:add(fields.fragment, range(unit, at + headerSize, left - headerSize))
      isMalformed(state, item, rest,
        string.format("byte %d: packet of %s, the transfer ends after %d", place, number(length, "byte"), left))
      return
    end
    local isWrong = showPacket(state, tree, unit, at, length)
    at = at + length
    -- A panel goes on with the next packet, a host does not.
    if isWrong and not unit.toPanel then
      if at < past then
        tree:add(fields.unread, range(unit, at, past - at))
      end
      return
    end
  end
end

-- What tells a panel's traffic where no ids do: packets without a flaw that fill the transfer.

local function goesOn(unit)
  return unit.size % split == 0
end

local function isPlainRecord(unit, type, size)
  local layout = layouts[type]
  return type <= lastType and (not layout or layout.toPanel == unit.toPanel and fits(layout, size))
end

local function arePlainRecords(unit, at, past, announced)
  local count = 0
  while at < past do
    if not holds(unit, at, recordHeaderSize) then
      -- The capture does not hold it, or another frame does.
      return count > 0 and (at + recordHeaderSize <= unit.size or past > unit.size)
    end
    local type, size = unit.bytes:byte(at + 1), u16(unit.bytes, at + 1)
    if not isPlainRecord(unit, type, size) then
      return false
    end
    count = count + 1
    at = at + recordHeaderSize + size
  end
  return at == past and count == announced
end

local function isPlain(unit)
  local at = 0
  repeat
    if not holds(unit, at, headerSize) then
      return at > 0 and (goesOn(unit) or at + headerSize <= unit.size)
    end
    local length, count = u16(unit.bytes, at), u16(unit.bytes, at + 2)
    local isWhole = length <= unit.size - at or goesOn(unit)
    if not isWhole or length <= headerSize or unit.toPanel and (at > 0 or u32(unit.bytes, at + 4) ~= 0) or
      not arePlainRecords(unit, at + headerSize, at + length, count) then
      return false
    end
    at = at + length
  until at >= unit.size
  return true
end

-- What has been seen before a frame, and what each frame is part of (its plan), which is
-- decided when it is seen for the first time, in the order of the file.

local streams -- by endpoint: the packet that is not whole yet; how far the transfer has come; whether one has ended
local plans -- by frame and place in it
local panels -- addresses of panels; true: as their ids say, false: as what they say shows
local limits -- by address, what the panel has announced

function morvane.init()
  streams, plans, panels, limits = {}, {}, {}, {}
end

-- For a second a host may still send what it began before.
local function announceLimit(address, bytes, now)
  local limit = limits[address] or { announced = 1100 }
  limits[address] = limit
  limit.before = limit.since and limit.announced
  limit.since = now
  if bytes > 1024 then
    limit.announced = bytes
  end
end

-- None where no announcement was captured.
local function limitAt(address, now)
  local limit = limits[address]
  if limit and now >= limit.since + 1 then
    return limit.announced
  end
  return limit and limit.before and math.max(limit.announced, limit.before)
end

-- Bytes that a packet in several frames still wants, as far as they tell.
local function wantedBy(assembly)
  if assembly.size < headerSize then
    return headerSize - assembly.size
  elseif #assembly.bytes < headerSize then
    return 0
  end
  return math.max(0, u16(assembly.bytes, 0) - assembly.size)
end

-- How many of the unit's bytes from `at` on the packet takes.
local function grow(assembly, unit, at, frame)
  local begin = at
  while at < unit.size and wantedBy(assembly) > 0 do
    local part = math.min(wantedBy(assembly), unit.size - at)
    -- Behind a gap in the capture nothing is of use.
    if #assembly.bytes == assembly.size then
      assembly.bytes = assembly.bytes .. unit.bytes:sub(at + 1, at + part)
    end
    assembly.size = assembly.size + part
    at = at + part
  end
  assembly.frames[#assembly.frames + 1] = frame
  return at - begin
end

-- Where the packet begins whose end is not in the unit.
local function findTail(unit, at)
  while at < unit.size do
    if unit.size - at < headerSize then
      return at
    elseif not holds(unit, at, headerSize) or u16(unit.bytes, at) < headerSize then
      return
    elseif u16(unit.bytes, at) > unit.size - at then
      return at
    end
    at = at + u16(unit.bytes, at)
  end
end

local function continueHead(plan, stream, unit, frame)
  local open = stream.open
  plan.head, plan.base = open, stream.past
  plan.from = grow(open, unit, 0, frame)
  if wantedBy(open) > 0 and goesOn(unit) then
    return
  end
  stream.open, open.wholeIn = nil, frame
  if #open.bytes >= headerSize and u16(open.bytes, 0) < headerSize then
    plan.from = unit.size
  end
end

local function makePlan(stream, unit, frame)
  local plan = { from = 0, base = 0, tailAt = unit.size, mayBeMiddle = not stream.hasEnded }
  if stream.open and isPlain(unit) then
    plan.broken, stream.open = stream.open, nil
  end
  if stream.open then
    continueHead(plan, stream, unit, frame)
  end
  local tailAt = not stream.open and goesOn(unit) and findTail(unit, plan.from)
  if tailAt then
    plan.tail, plan.tailAt = { bytes = "", size = 0, frames = {}, base = plan.base + tailAt }, tailAt
    grow(plan.tail, unit, tailAt, frame)
    stream.open = plan.tail
  end
  stream.past = plan.base + unit.size
  stream.hasEnded = stream.hasEnded or not goesOn(unit)
  return plan
end

local function showPart(state, tree, span, assembly, visited)
  local length = assembly.size >= headerSize and #assembly.bytes >= headerSize and u16(assembly.bytes, 0)
  local text = "Part of a packet" .. (length and " of " .. number(length, "byte") or "") .. ": " .. number(span:len(), "byte")
  local item = tree:add(fields.fragment, span)
  item:set_text(text)
  if assembly.wholeIn then
    item:add(fields.wholeIn, assembly.wholeIn):set_generated()
  elseif visited then
    item:append_text(" (the capture does not hold its end)")
  end
  state.texts[#state.texts + 1] = text
end

-- A packet in several frames, in the last of them.
local function showWhole(state, tree, assembly, toPanel)
  local bytes = ByteArray.new(assembly.bytes, true)
  local unit = { tvb = bytes:tvb("Packet in " .. number(#assembly.frames, "part")), bytes = assembly.bytes,
    size = assembly.size, base = assembly.base, toPanel = toPanel }
  for _, frame in ipairs(assembly.frames) do
    tree:add(fields.partIn, frame):set_generated()
  end
  showPackets(state, tree, unit, 0, unit.size)
end

local function showPlan(state, tree, unit, plan, pinfo)
  if plan.broken then
    isMalformed(state, tree, unit.tvb(0, 0), string.format("byte %d: packet of %s, the transfer ends after %d, in frame %d",
      plan.broken.base, number(u16(plan.broken.bytes, 0), "byte"), plan.broken.size, plan.broken.frames[#plan.broken.frames]))
  end
  if plan.head and plan.head.wholeIn ~= pinfo.number then
    showPart(state, tree, range(unit, 0, plan.from), plan.head, pinfo.visited)
    return
  elseif plan.head then
    showWhole(state, tree, plan.head, unit.toPanel)
  end
  showPackets(state, tree, unit, plan.from, plan.tailAt)
  if plan.tail then
    showPart(state, tree, range(unit, plan.tailAt, unit.size - plan.tailAt), plan.tail, pinfo.visited)
  end
end

local linesShown = 4

local function describe(state)
  local text = table.concat(state.texts, "; ", 1, math.min(linesShown, #state.texts))
  if #state.texts > linesShown then
    text = text .. string.format("; and %d more", #state.texts - linesShown)
  end
  local wrong = state.malformed and "[Malformed: " .. state.malformed .. "]" or
    state.violation and "[Violation: " .. state.violation .. "]" or
    text == "" and state.cut and "[cut]"
  return wrong and (text == "" and wrong or wrong .. " " .. text) or text
end

-- Address and direction, or nothing for what no panel's endpoint says: the addresses are
-- "host" and BUS.DEVICE.ENDPOINT.
local function placeOf(pinfo)
  local source, destination = tostring(pinfo.src), tostring(pinfo.dst)
  if source == "host" then
    return destination:match("^(%d+%.%d+)%.2$"), true
  end
  return source:match("^(%d+%.%d+)%.1$"), false
end

local function unitOf(tvb, toPanel)
  return { tvb = tvb, bytes = tvb:raw(), size = tvb:reported_len(), base = 0, toPanel = toPanel }
end

local function planOf(unit, pinfo, address)
  local key = pinfo.number .. " " .. unit.tvb:offset()
  local plan = plans[key]
  if not plan and pinfo.visited then
    -- Its ids came to light later; of what it is part can't be known any more.
    plan = { from = 0, base = 0, tailAt = unit.size }
  elseif not plan then
    local stream = address .. (unit.toPanel and " out" or " in")
    streams[stream] = streams[stream] or {}
    plan = makePlan(streams[stream], unit, pinfo.number)
    plan.limit = limitAt(address, pinfo.rel_ts)
    plans[key] = plan
  end
  return plan
end

local function show(unit, pinfo, tree, address)
  local plan = planOf(unit, pinfo, address)
  unit.base = plan.base
  local state = { texts = {}, limit = plan.limit }
  local top = tree:add(morvane, unit.tvb(), unit.toPanel and "Morvane Panel, to the panel" or "Morvane Panel, from the panel")
  showPlan(state, top, unit, plan, pinfo)
  if plan.mayBeMiddle and state.malformed then
    top:add_proto_expert_info(middleInfo)
  end
  if state.maxPacket and not pinfo.visited then
    announceLimit(address, state.maxPacket, pinfo.rel_ts)
  end
  pinfo.cols.protocol:set("Morvane")
  pinfo.cols.info:set(describe(state))
end

-- With the ids in the capture, and where the user says so, all is the panel's; what went
-- before the ids is, too, once they are known. In a capture without any ids it is all of a
-- device that has shown itself.
local classUnknown, classVendor = 0xFFFF, 0xFF

local function isPanels(pinfo, address)
  if pinfo.match_uint == classUnknown then
    return panels[address] ~= nil
  elseif pinfo.match_uint == classVendor then
    return pinfo.visited and panels[address]
  end
  panels[address] = true
  return true
end

function morvane.dissector(tvb, pinfo, tree)
  local address, toPanel = placeOf(pinfo)
  if not address or not isPanels(pinfo, address) then
    return 0
  end
  show(unitOf(tvb, toPanel), pinfo, tree, address)
  return tvb:len()
end

-- Without ids: what is plainly a panel's, and what goes on with that.
local function claim(tvb, pinfo, tree)
  local address, toPanel = placeOf(pinfo)
  if not address then
    return false
  end
  local unit = unitOf(tvb, toPanel)
  local stream = streams[address .. (toPanel and " out" or " in")]
  local isKnown = plans[pinfo.number .. " " .. tvb:offset()]
  if not isKnown and not (not pinfo.visited and stream and stream.open) and not isPlain(unit) then
    return false
  end
  panels[address] = panels[address] or false
  show(unit, pinfo, tree, address)
  return true
end

morvane:register_heuristic("usb.bulk", claim)
DissectorTable.get("usb.bulk"):add(classUnknown, morvane)
DissectorTable.get("usb.bulk"):add(classVendor, morvane)
DissectorTable.get("usb.device"):add_for_decode_as(morvane)

local registered = {}

local function registerIds()
  local products = DissectorTable.get("usb.product")
  for _, id in ipairs(registered) do
    products:remove(id, morvane)
  end
  registered = {}
  for word in morvane.prefs.ids:gmatch("%S+") do
    local vendor, product = word:match("^(%x%x?%x?%x?):(%x%x?%x?%x?)$")
    if vendor then
      registered[#registered + 1] = tonumber(vendor, 16) * 65536 + tonumber(product, 16)
      products:add(registered[#registered], morvane)
    else
      report_failure("morvane.ids: '" .. word .. "' is no USB id: write vendor and product in hexadecimal, as in 1a2b:beef")
    end
  end
end

morvane.prefs_changed = registerIds
registerIds()
