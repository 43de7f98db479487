-- Wireshark dissector of Tarnwick's datagrams (docs/wire-format.md).
--
-- Works on UDP port 55001, on the ports of the preference, by "Decode As", and by
-- itself on any port once a header or service packet was seen. It puts files
-- together, numbers the passes and marks what contradicts itself. README.md beside
-- this file tells how it is used.

local tarnwick = Proto("tarnwick", "Tarnwick one-way file transfer")

local KIND_TRASH_JOURNAL, KIND_SEAL = 1, 2
local HEADER_SIZE, NAMES_AT, SERVICE_SIZE = 20, 84, 36
local MIN_UDATA, MAX_UDATA = 1400, 65507
local EXACT = 2 ^ 53 -- Lua's numbers are doubles: no larger integer is exact
local SERVICE_ID = string.rep("F", 16)

-- Preferences ---------------------------------------------------------------

local CP1251, UTF8 = 1, 2
local prefs = tarnwick.prefs
prefs.ports = Pref.range("UDP ports", "55001", "Ports that are always decoded as Tarnwick", 65535)
prefs.charset = Pref.enum("Names are in", CP1251, "UTF-8 where the sender runs with -a:cp1251 on UTF-8 names",
  { { 1, "windows-1251", CP1251 }, { 2, "UTF-8", UTF8 } }, false)
prefs.limit = Pref.uint("Memory for file contents (MiB)", 256,
  "Parts beyond this are counted, but their files are not put together")
prefs.export_dir = Pref.string("Write complete files to folder", "",
  "Each file that becomes complete is written there once; empty: none are written")

-- Fields --------------------------------------------------------------------

local KINDS = { [0] = "file", [1] = "trash journal", [2] = "seal" }
local f = {
  id = ProtoField.string("tarnwick.transfer_id", "Transfer id"),
  part_no = ProtoField.uint64("tarnwick.part_no", "Part number"),
  data_len = ProtoField.uint32("tarnwick.data_len", "Data length"),
  -- header packet
  file_size = ProtoField.int64("tarnwick.file_size", "File size"),
  reserved = ProtoField.uint64("tarnwick.reserved", "Reserved", base.HEX),
  udata_size = ProtoField.uint32("tarnwick.udata_size", "Datagram size limit"),
  path_crc = ProtoField.uint32("tarnwick.path_crc", "CRC of the sender's path", base.HEX),
  send_time = ProtoField.absolute_time("tarnwick.send_time", "Send time", base.UTC),
  send_seconds = ProtoField.int64("tarnwick.send_seconds", "Send time, seconds since 1970"),
  file_kind = ProtoField.uint16("tarnwick.file_kind", "Kind", base.DEC, KINDS),
  spare = ProtoField.bytes("tarnwick.spare", "Spare"),
  name = ProtoField.string("tarnwick.name", "Name"),
  folder = ProtoField.string("tarnwick.folder", "Folder"),
  record = ProtoField.string("tarnwick.seal", "Seal record"),
  -- service packet
  all_send_cnt = ProtoField.uint64("tarnwick.all_send_cnt", "Datagrams since the sender started"),
  send_cnt = ProtoField.uint64("tarnwick.send_cnt", "Datagrams of the scan folder"),
  uncaptured = ProtoField.uint64("tarnwick.uncaptured", "Datagrams missing since the last service packet"),
  -- data packet
  data = ProtoField.bytes("tarnwick.data", "File bytes"),
  offset = ProtoField.uint64("tarnwick.offset", "Offset in the file"),
  -- worked out
  file = ProtoField.string("tarnwick.file", "File"),
  parts = ProtoField.uint64("tarnwick.parts", "Parts of the file"),
  pass = ProtoField.uint32("tarnwick.pass", "Pass"),
  arrived = ProtoField.uint64("tarnwick.arrived", "Parts so far"),
  percent = ProtoField.float("tarnwick.percent", "Percent so far"),
  header_in = ProtoField.framenum("tarnwick.header_in", "First header packet in", base.NONE, frametype.REQUEST),
  complete_in = ProtoField.framenum("tarnwick.complete_in", "Complete in", base.NONE, frametype.RESPONSE),
  sealed_in = ProtoField.framenum("tarnwick.sealed_in", "Sealed transfer's header packet in", base.NONE),
  content = ProtoField.bytes("tarnwick.content", "Content of the file"),
}

-- The fields of a seal's record in their order: key, Lua pattern of its value, group.
-- A group is there with all its fields or not at all; those without one are required.
local HEX64 = string.rep("[0-9a-f]", 64)
local ID_PATTERN = string.rep("[0-9A-F]", 16)
local RECORD = {
  { "seal", "1" }, { "of", ID_PATTERN }, { "kind", "%d+" }, { "size", "%d+" }, { "udata", "%d+" },
  { "sent", "%-?%d+" }, { "crc", string.rep("[0-9A-F]", 8) }, { "b2", HEX64 },
  { "mtime", "%-?%d+%." .. string.rep("%d", 9) }, { "mode", "0[0-7][0-7][0-7]" },
  { "name", "[%w%-._~/%%]+", "path" }, { "folder", "[%w%-._~/%%]*", "path" },
  { "k", "%d+", "code" }, { "r", "%d+", "code" }, { "window", "%d+", "code" },
  { "key", HEX64, "sig" }, { "sig", HEX64 .. HEX64, "sig" },
}
for _, field in ipairs(RECORD) do
  f["seal_" .. field[1]] = ProtoField.string("tarnwick.seal." .. field[1], "seal " .. field[1])
end
tarnwick.fields = f

-- Expert marks --------------------------------------------------------------

local function mark(name, text, group, severity)
  return ProtoExpert.new("tarnwick." .. name, text, group, severity)
end
local function malformed(name, text) return mark(name, text, expert.group.MALFORMED, expert.severity.ERROR) end
local function contradiction(name, text) return mark(name, text, expert.group.PROTOCOL, expert.severity.WARN) end
local function sequence(name, text) return mark(name, text, expert.group.SEQUENCE, expert.severity.NOTE) end

local e = {
  short = malformed("short", "Datagram is too short"),
  bad_len = malformed("bad_len", "data_len is not the length of what follows"),
  bad_service = malformed("bad_service", "Not a valid service packet"),
  bad_reserved = malformed("bad_reserved", "Reserved is not all ones"),
  bad_udata = malformed("bad_udata", "udata_size is not within 1400 to 65507"),
  bad_size = malformed("bad_size", "File size is negative"),
  bad_names = malformed("bad_names", "Names area is malformed"),
  bad_record = malformed("bad_record", "Seal record is malformed"),
  empty_data = malformed("empty_data", "Data packet without bytes"),
  beyond = contradiction("beyond", "Part is beyond the last one of the file"),
  bad_part_len = contradiction("bad_part_len", "Part has another length than the header packet implies"),
  header_differs = contradiction("header_differs", "Header packet differs from the first one of its transfer"),
  part_differs = contradiction("part_differs", "Part came with other bytes before"),
  seal_differs = contradiction("seal_differs", "Seal contradicts the sealed transfer"),
  bad_kind = contradiction("bad_kind", "Unknown kind of file"),
  bad_spare = contradiction("bad_spare", "Spare bytes are not 0"),
  counters = contradiction("counters", "Service counters contradict each other or the ones before"),
  gap = sequence("gap", "Parts are missing in a pass"),
  uncaptured = sequence("missing", "Datagrams are missing since the last service packet"),
  no_header = sequence("no_header", "No header packet of this transfer came before"),
  unsealed = sequence("unsealed", "The sealed transfer was not seen before"),
  limit = mark("limit", "File is not put together: preference \"Memory for file contents\"",
    expert.group.UNDECODED, expert.severity.NOTE),
  cut = mark("cut", "Datagram was captured in part only", expert.group.UNDECODED, expert.severity.NOTE),
  exported = mark("exported", "Writing the file out", expert.group.COMMENTS_GROUP, expert.severity.CHAT),
}
tarnwick.experts = e

-- Texts ---------------------------------------------------------------------

-- Unicode of the bytes 0x80 to 0xFF in windows-1251; 0x98 has no character.
local HIGH = {
  0x402, 0x403, 0x201A, 0x453, 0x201E, 0x2026, 0x2020, 0x2021, 0x20AC, 0x2030, 0x409, 0x2039, 0x40A, 0x40C, 0x40B, 0x40F,
  0x452, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014, 0xFFFD, 0x2122, 0x459, 0x203A, 0x45A, 0x45C, 0x45B, 0x45F,
  0xA0, 0x40E, 0x45E, 0x408, 0xA4, 0x490, 0xA6, 0xA7, 0x401, 0xA9, 0x404, 0xAB, 0xAC, 0xAD, 0xAE, 0x407,
  0xB0, 0xB1, 0x406, 0x456, 0x491, 0xB5, 0xB6, 0xB7, 0x451, 0x2116, 0x454, 0xBB, 0x458, 0x405, 0x455, 0x457,
}
for i = 0, 63 do HIGH[65 + i] = 0x410 + i end -- А to я

local function utf8_of(code)
  if code < 0x80 then return string.char(code) end
  local low = 0x80 + code % 64
  if code < 0x800 then return string.char(0xC0 + math.floor(code / 64), low) end
  return string.char(0xE0 + math.floor(code / 4096), 0x80 + math.floor(code / 64) % 64, low)
end

-- Well-formed UTF-8 of characters that may be shown: "?" for bytes that are no
-- UTF-8, for controls and for what turns the direction of a line.
local function showable(text)
  text = text:gsub("[%z\1-\31\127]", "?")
  local out, at = {}, 1
  while at <= #text do
    local char = text:match("^[\1-\127]", at) or text:match("^[\194-\223][\128-\191]", at)
      or text:match("^\224[\160-\191][\128-\191]", at) or text:match("^[\225-\236\238\239][\128-\191][\128-\191]", at)
      or text:match("^\237[\128-\159][\128-\191]", at) or text:match("^\240[\144-\191][\128-\191][\128-\191]", at)
      or text:match("^[\241-\243][\128-\191][\128-\191][\128-\191]", at) or text:match("^\244[\128-\143][\128-\191][\128-\191]", at)
    local hidden = char and (char:match("^\194[\128-\159]$") or char:match("^\216\156$") or
      char:match("^\226\128[\139-\143\168-\174]$") or char:match("^\226\129[\160-\175]$"))
    out[#out + 1] = (char and not hidden) and char or "?"
    at = at + (char and #char or 1)
  end
  return table.concat(out)
end

-- A name off the wire, as it is shown.
local function name_text(bytes)
  if prefs.charset == UTF8 then return showable(bytes) end
  return showable((bytes:gsub("[\128-\255]", function(c) return utf8_of(HIGH[c:byte() - 127]) end)))
end

local function percent_decoded(text)
  return showable((text:gsub("%%(%x%x)", function(hex) return string.char(tonumber(hex, 16)) end)))
end

local function hex_of(bytes)
  return (bytes:gsub(".", function(c) return string.format("%02X", c:byte()) end))
end

local function whole(number) return string.format("%.0f", number) end

-- What was seen --------------------------------------------------------------

-- streams: by addresses and ports; each has its transfers by id and the last service
-- counters. frames: what the first look at a frame found out.
local streams, frames, kept_bytes = {}, {}, 0

function tarnwick.init()
  streams, frames, kept_bytes = {}, {}, 0
end

local function stream_of(pinfo)
  local key = string.format("%s:%d %s:%d", tostring(pinfo.src), pinfo.src_port, tostring(pinfo.dst), pinfo.dst_port)
  streams[key] = streams[key] or { transfers = {}, since_service = 0 }
  return streams[key]
end

-- header: the first valid header packet; have: parts that came, by number, each its
-- bytes or, where these were not kept, true.
local function transfer_of(stream, id)
  local transfer = stream.transfers[id]
  if not transfer then
    transfer = { id = id, have = {}, arrived = 0, pass = 1, last = 0, keeps = true }
    stream.transfers[id] = transfer
  end
  return transfer
end

local function part_size(header) return header.udata - HEADER_SIZE end

local function part_count(header) return math.ceil(header.size / part_size(header)) end

-- Bytes of part `no`, which is not beyond the last one.
local function part_length(header, no)
  return math.min(part_size(header), header.size - (no - 1) * part_size(header))
end

local function fits(header, no, length)
  return no <= part_count(header) and length == part_length(header, no)
end

local function forget_contents(transfer)
  for no, bytes in pairs(transfer.have) do
    if bytes ~= true then kept_bytes = kept_bytes - #bytes end
    transfer.have[no] = true
  end
  transfer.keeps = false
end

local function keep(transfer, no, bytes)
  if kept_bytes + #bytes > prefs.limit * 1024 * 1024 then forget_contents(transfer) end
  transfer.have[no] = transfer.keeps and bytes or true
  if transfer.keeps then kept_bytes = kept_bytes + #bytes end
  transfer.arrived = transfer.arrived + 1
end

-- The file's bytes if all parts came and were kept. They replace the parts.
local function join(transfer)
  local header = transfer.header
  if not header or transfer.complete_in or transfer.arrived < part_count(header) then return false end
  if transfer.keeps then
    transfer.content = table.concat(transfer.have)
    transfer.have = {}
  end
  return true
end

-- The bytes of part `no` that came before, true where they were not kept, or nil.
local function bytes_of(transfer, no)
  if not transfer.content then return transfer.have[no] end
  local from = (no - 1) * part_size(transfer.header)
  return transfer.content:sub(from + 1, from + part_length(transfer.header, no))
end

local function file_label(transfer)
  local header = transfer.header
  if not header then return "transfer " .. transfer.id end
  return (header.folder and header.folder .. "/" or "") .. header.name
end

-- Writes a complete file below the folder of the preference; what is there already
-- stays. Returns what to tell, or nil.
local function export(transfer)
  if prefs.export_dir == "" or not transfer.content then return nil end
  local safe = transfer.header.name:gsub("[/\\]", "_")
  local path = prefs.export_dir .. "/" .. transfer.id .. "_" .. safe:sub(1, 200)
  local there = io.open(path, "rb")
  if there then
    there:close()
    return path .. " exists and was left alone"
  end
  local out, why = io.open(path, "wb")
  if not out then return "can't be written: " .. tostring(why) end
  local done = out:write(transfer.content)
  done = out:close() and done
  return done and "Written to " .. path or path .. " could not be written in full"
end

-- The record of a seal ---------------------------------------------------------

-- The parsed fields by key, and what is wrong with the text or nil.
local function parse_record(text)
  local values, next_field, groups = {}, 1, {}
  for field in (text .. " "):gmatch("([^ ]*) ") do
    local key, value = field:match("^([^=]+)=([\33-\126]*)$")
    if not key then return values, "\"" .. showable(field) .. "\" is not key=value" end
    if next_field > #RECORD then return values, "something follows the signature" end
    for i, known in ipairs(RECORD) do
      if known[1] == key then
        if i < next_field then return values, key .. " comes twice or out of order" end
        local wrong = known[2] == "%d+" and value:match("^0%d") or key == "kind" and value == "2"
        if wrong or not value:match("^" .. known[2] .. "$") then return values, key .. " has a bad value" end
        values[key], next_field = value, i + 1
        if known[3] then groups[known[3]] = true end
      end
    end
  end
  for _, field in ipairs(RECORD) do
    if not values[field[1]] and (not field[3] or groups[field[3]]) then
      return values, field[1] .. " is missing"
    end
  end
  return values, nil
end

-- How many repair parts the record announces.
local function repair_parts(values)
  if not values.k then return 0 end
  local parts = math.ceil(tonumber(values.size) / (tonumber(values.udata) - HEADER_SIZE))
  local k, r, window = tonumber(values.k), tonumber(values.r), tonumber(values.window)
  if k < 1 or r < 1 or k + r > 255 or window < 1 or window > 2 ^ 32 then return nil end
  local full = math.floor(parts / window)
  return (full * math.ceil(window / k) + math.ceil((parts - full * window) / k)) * r
end

-- What the record and its own or the sealed transfer's header packet disagree on.
local function seal_contradictions(seal, sealed)
  local values, found = seal.values, {}
  local function want(what, a, b)
    if a ~= b then found[#found + 1] = string.format("%s (%s, %s)", what, tostring(a), tostring(b)) end
  end
  want("name", seal.name, values.of .. ".seal")
  for _, header in ipairs({ seal, sealed }) do
    want("udata", values.udata, whole(header.udata))
    want("sent", values.sent, header.sent)
    want("crc", values.crc, header.crc)
  end
  local parts = repair_parts(values)
  if not parts then
    found[#found + 1] = "k, r or window out of range"
  else
    want("repair parts", whole(seal.size), whole(parts * part_size(seal)))
  end
  if sealed then
    want("kind", values.kind, tostring(sealed.kind))
    want("size", values.size, whole(sealed.size))
  end
  return #found > 0 and table.concat(found, "; ") or nil
end

-- Dissection ---------------------------------------------------------------------

-- On the first look at a frame `note` is filled in from what came before; when the
-- frame is shown again, it is what was found out then.
local function add_generated(tree, field, value)
  return tree:add(field, value):set_generated()
end

local function number_of(range)
  local value = range:le_int64()
  local number = tonumber(tostring(value))
  return number, math.abs(number) < EXACT
end

local function take_pass(transfer, part)
  if part == 0 and transfer.last > 0 then
    transfer.pass, transfer.last = transfer.pass + 1, 0
  elseif part > 0 and part < transfer.last then -- all header packets between were lost
    transfer.pass, transfer.last = transfer.pass + 1, 0
  end
end

local function note_completion(transfer, note, frame)
  if not join(transfer) then return end
  transfer.complete_in = frame
  note.completes = true
  note.exported = export(transfer)
end

local function split_names(area)
  local names, rest = {}, area
  while #rest > 0 and rest:sub(1, 1) ~= "\0" do
    local name, behind = rest:match("^(%Z+)%z(.*)$")
    if not name then return names, "the last string is not closed" end
    names[#names + 1], rest = name, behind
  end
  if rest == "" then return names, "the closing empty string is missing" end
  if #rest > 1 then return names, "something follows the closing empty string" end
  return names, nil
end

-- The names area: name NUL [folder NUL] NUL; NUL NUL NUL... of an empty name included.
local function read_names(area, kind)
  local names, wrong
  if area:sub(1, 1) == "\0" then -- a name that was cut to nothing
    names, wrong = split_names(area:sub(2))
    table.insert(names, 1, "")
  else
    names, wrong = split_names(area)
  end
  if not wrong then
    if kind == KIND_SEAL and #names ~= 3 then wrong = "a seal has three strings, this has " .. #names end
    if kind ~= KIND_SEAL and #names > 2 then wrong = "more than name and folder" end
  end
  return names, wrong
end

local function show_transfer(tree, transfer, note, frame)
  if transfer.header then
    add_generated(tree, f.file, file_label(transfer))
    add_generated(tree, f.parts, UInt64(part_count(transfer.header) % 2 ^ 32, math.floor(part_count(transfer.header) / 2 ^ 32)))
    if transfer.header.frame ~= frame then add_generated(tree, f.header_in, transfer.header.frame) end
  end
  add_generated(tree, f.pass, note.pass)
  add_generated(tree, f.arrived, UInt64(note.arrived, 0))
  if note.percent then add_generated(tree, f.percent, note.percent) end
  if transfer.complete_in and transfer.complete_in ~= frame then add_generated(tree, f.complete_in, transfer.complete_in) end
end

local function show_completion(tree, transfer, note)
  if not note.completes then return end
  local header = transfer.header
  if not transfer.content then
    tree:add_proto_expert_info(e.limit)
    return
  end
  local label = string.format("%s: %s bytes from %s parts", file_label(transfer), whole(header.size), whole(part_count(header)))
  if #transfer.content > 0 then
    local tvb = ByteArray.new(transfer.content, true):tvb("Tarnwick file")
    tree:add(f.content, tvb()):set_text("Complete file " .. label):set_generated()
  else
    tree:add(tarnwick, "Complete file " .. label):set_generated()
  end
  if note.exported then tree:add_proto_expert_info(e.exported, note.exported) end
end

local function show_gap(tree, note, where)
  if not note.gap then return end
  local first, last = whole(note.gap[1]), whole(note.gap[2])
  tree:add_proto_expert_info(e.gap, first == last and string.format("Part %s is missing in %s", first, where)
    or string.format("Parts %s to %s are missing in %s", first, last, where))
end

local function finish_note(note, transfer)
  note.pass, note.arrived = transfer.pass, transfer.arrived
  if transfer.header then
    local parts = part_count(transfer.header)
    note.percent = parts == 0 and 100 or math.floor(transfer.arrived * 1000 / parts) / 10
  end
end

-- Takes the first valid header packet of a transfer; later ones are compared with it.
local function note_header(stream, transfer, header, note, frame)
  local parts = part_count(transfer.header or header)
  if transfer.last > 0 and transfer.last < parts then note.gap = { transfer.last + 1, parts } end
  take_pass(transfer, 0)
  if not transfer.header then
    transfer.header = header
    header.frame = frame
    for no, bytes in pairs(transfer.have) do -- what came early and does not fit
      local length = bytes == true and part_size(header) or #bytes
      if not fits(header, no, length) then
        transfer.have[no] = nil
        transfer.arrived = transfer.arrived - 1
        if bytes ~= true then kept_bytes = kept_bytes - #bytes end
      end
    end
  elseif transfer.header.bytes ~= header.bytes then
    local differing = {}
    for _, what in ipairs({ "size", "udata", "crc", "sent", "kind", "area" }) do
      if header[what] ~= transfer.header[what] then differing[#differing + 1] = what == "area" and "names" or what end
    end
    note.differs = string.format("Header packet differs from the first one of its transfer, frame %d (%s)",
      transfer.header.frame, #differing > 0 and table.concat(differing, ", ") or "spare")
  end
  if header.values then
    local sealed = stream.transfers[header.values.of]
    note.sealed = sealed and sealed.header
    note.seal_differs = seal_contradictions(header, note.sealed)
  end
  note_completion(transfer, note, frame)
end

local function show_record(tree, range, header)
  local item = tree:add(f.record, range, header.record)
  for _, field in ipairs(RECORD) do
    local value = header.values and header.values[field[1]] or header.partial and header.partial[field[1]]
    if value then
      local shown = field[3] == "path" and percent_decoded(value) or value
      item:add(f["seal_" .. field[1]], range, shown)
    end
  end
  if header.bad_record then item:add_proto_expert_info(e.bad_record, "Seal record is malformed: " .. header.bad_record) end
  return item
end

-- Reads and shows the fields of a header packet. Returns them, and whether a receiver
-- would take the packet.
local function dissect_file_info(tvb, tree)
  local header, good = {}, true
  local function complain(item, what, text)
    if text then item:add_proto_expert_info(what, text) else item:add_proto_expert_info(what) end
    good = false
  end
  local item, exact = tree:add_le(f.file_size, tvb(20, 8)), nil
  header.size, exact = number_of(tvb(20, 8))
  if header.size < 0 then complain(item, e.bad_size) end
  good = good and exact
  item = tree:add_le(f.reserved, tvb(28, 8))
  if tvb:raw(28, 8) ~= string.rep("\255", 8) then complain(item, e.bad_reserved) end
  header.udata = tvb(36, 4):le_uint()
  item = tree:add_le(f.udata_size, tvb(36, 4))
  if header.udata < MIN_UDATA or header.udata > MAX_UDATA then complain(item, e.bad_udata) end
  header.crc = hex_of(tvb:raw(40, 4):reverse())
  tree:add_le(f.path_crc, tvb(40, 4))
  local seconds = tvb(44, 8):le_int64()
  header.sent = tostring(seconds)
  if math.abs(tonumber(header.sent)) < 2 ^ 40 then tree:add(f.send_time, tvb(44, 8), NSTime.new(tonumber(header.sent), 0)) end
  tree:add_le(f.send_seconds, tvb(44, 8)):set_hidden()
  header.kind = tvb(52, 2):le_uint()
  item = tree:add_le(f.file_kind, tvb(52, 2))
  if not KINDS[header.kind] then item:add_proto_expert_info(e.bad_kind) end
  item = tree:add(f.spare, tvb(54, 30))
  if tvb:raw(54, 30) ~= string.rep("\0", 30) then item:add_proto_expert_info(e.bad_spare) end
  return header, good
end

local function dissect_names(tvb, tree, header)
  header.area = tvb:raw(NAMES_AT)
  local names, wrong = read_names(header.area, header.kind)
  local at = NAMES_AT
  header.name = name_text(names[1] or "")
  header.folder = names[2] and name_text(names[2]):gsub("^/+", ""):gsub("/+$", "")
  if header.folder == "" then header.folder = nil end
  for i, field in ipairs({ f.name, f.folder }) do
    if names[i] then
      tree:add(field, tvb(at, #names[i] + 1), name_text(names[i]))
      at = at + #names[i] + 1
    end
  end
  if header.kind == KIND_SEAL and names[3] then
    header.record = showable(names[3])
    local values, bad = parse_record(names[3])
    header.bad_record, header.partial = bad, values
    if not bad then header.values = values end
    header.record_item = show_record(tree, tvb(at, #names[3] + 1), header)
  end
  if wrong then tree:add_proto_expert_info(e.bad_names, "Names area is malformed: " .. wrong) end
  return wrong == nil
end

local function dissect_header(tvb, pinfo, tree, stream, id, valid)
  if tvb:len() < NAMES_AT + 1 then
    tree:add_proto_expert_info(e.short, "Header packet is too short")
    return "Header packet, too short"
  end
  local header, good = dissect_file_info(tvb, tree)
  good = dissect_names(tvb, tree, header) and good and valid
  header.bytes = tvb:raw(HEADER_SIZE)
  local kind = KINDS[header.kind] or "kind " .. header.kind
  local text = string.format("Header packet: %s \"%s\", %s bytes", kind, file_label({ header = header }), whole(header.size))
  if not stream or not good then return text end

  local transfer, note = transfer_of(stream, id), frames[pinfo.number]
  if not note then
    note = {}
    frames[pinfo.number] = note
    note_header(stream, transfer, header, note, pinfo.number)
    finish_note(note, transfer)
  end
  if note.differs then tree:add_proto_expert_info(e.header_differs, note.differs) end
  show_gap(tree, note, "the pass before")
  if header.values then
    if note.sealed then
      add_generated(header.record_item, f.sealed_in, note.sealed.frame)
    else
      header.record_item:add_proto_expert_info(e.unsealed)
    end
    if note.seal_differs then header.record_item:add_proto_expert_info(e.seal_differs, "Seal contradicts: " .. note.seal_differs) end
  end
  show_transfer(tree, transfer, note, pinfo.number)
  show_completion(tree, transfer, note)
  return text .. ", pass " .. note.pass
end

-- The part's place in its pass: parts up to `no` that did not come are a gap.
local function note_place(transfer, no, note)
  take_pass(transfer, no)
  if no > transfer.last + 1 then note.gap = { transfer.last + 1, no - 1 } end
  transfer.last = math.max(transfer.last, no)
end

local function note_part(transfer, no, bytes, note, frame)
  local header = transfer.header
  note.no_header = header == nil
  if header and no > part_count(header) then
    note.beyond = string.format("Part is beyond the last one of the file, %s", whole(part_count(header)))
  elseif header and #bytes ~= part_length(header, no) then
    note.bad_len = string.format("Part has %d bytes, by the header packet it has %s", #bytes, whole(part_length(header, no)))
  else
    note_place(transfer, no, note)
    local before = bytes_of(transfer, no)
    if before == nil then
      keep(transfer, no, bytes)
      note_completion(transfer, note, frame)
    else
      note.repeated = true
      note.differs = before ~= true and before ~= bytes
    end
  end
  finish_note(note, transfer)
end

local function show_part_marks(tree, note)
  if note.no_header then tree:add_proto_expert_info(e.no_header) end
  if note.beyond then tree:add_proto_expert_info(e.beyond, note.beyond) end
  if note.bad_len then tree:add_proto_expert_info(e.bad_part_len, note.bad_len) end
  if note.differs then tree:add_proto_expert_info(e.part_differs) end
  show_gap(tree, note, "this pass")
end

local function dissect_data(tvb, pinfo, tree, stream, id, valid)
  local no, exact = number_of(tvb(8, 8))
  local part_text = tostring(tvb(8, 8):le_uint64())
  if tvb:len() == HEADER_SIZE then
    tree:add_proto_expert_info(e.empty_data)
    return "Part " .. part_text .. " without bytes"
  end
  local range = tvb(HEADER_SIZE)
  local item = tree:add(f.data, range)
  if not stream or not valid then return "Part " .. part_text end
  local transfer, note = transfer_of(stream, id), frames[pinfo.number]
  if not exact or no < 1 then
    item:add_proto_expert_info(e.beyond)
    return "Part " .. part_text
  end
  if not note then
    note = {}
    frames[pinfo.number] = note
    note_part(transfer, no, tvb:raw(HEADER_SIZE), note, pinfo.number)
  end
  show_part_marks(item, note)
  if transfer.header then
    local offset = (no - 1) * part_size(transfer.header)
    if offset < EXACT then add_generated(tree, f.offset, UInt64(offset % 2 ^ 32, math.floor(offset / 2 ^ 32))) end
  end
  show_transfer(tree, transfer, note, pinfo.number)
  show_completion(tree, transfer, note)
  local of = transfer.header and " of " .. whole(part_count(transfer.header)) or ""
  local what = note.repeated and ", came before" or note.completes and ", complete" or ""
  local percent = note.percent and string.format(" (%.1f %%)", note.percent) or ""
  return string.format("Part %s%s of %s, pass %d%s%s", part_text, of, file_label(transfer), note.pass, what, percent)
end

-- A folder's counter tells what this stream lacks only if the process sent for no
-- other folder in between.
local function note_service(stream, all, folder, note, frame)
  local last = stream.service
  if last then
    if all <= last.all then
      note.wrong = string.format("Counter does not grow since frame %d: another sender, or reordered", last.frame)
    elseif all - last.all == folder - last.folder and folder - last.folder > stream.since_service then
      note.uncaptured, note.since = folder - last.folder - stream.since_service, last.frame
    end
  end
  if folder > all then note.wrong = "More datagrams for the scan folder than in all" end
  stream.service = { all = all, folder = folder, frame = frame }
  stream.since_service = 0
end

local function dissect_service(tvb, pinfo, tree, stream, valid)
  if tvb:len() ~= SERVICE_SIZE or tvb:raw(8, 8) ~= string.rep("\0", 8) then
    tree:add_proto_expert_info(e.bad_service, tvb:len() ~= SERVICE_SIZE and "Service packet is not 36 bytes long"
      or "Service packet has a part number")
    if tvb:len() < SERVICE_SIZE then return "Service packet, too short" end
  end
  local all_item = tree:add_le(f.all_send_cnt, tvb(20, 8))
  tree:add_le(f.send_cnt, tvb(28, 8))
  local all, all_exact = number_of(tvb(20, 8))
  local folder, folder_exact = number_of(tvb(28, 8))
  if stream and valid and all_exact and folder_exact then
    local note = frames[pinfo.number]
    if not note then
      note = {}
      frames[pinfo.number] = note
      note_service(stream, all, folder, note, pinfo.number)
    end
    if note.wrong then all_item:add_proto_expert_info(e.counters, note.wrong) end
    if note.uncaptured then
      add_generated(tree, f.uncaptured, UInt64(note.uncaptured % 2 ^ 32, math.floor(note.uncaptured / 2 ^ 32)))
        :add_proto_expert_info(e.uncaptured, string.format("%s datagrams are missing since frame %d", whole(note.uncaptured), note.since))
    end
  end
  return string.format("Service packet: %s datagrams, %s of the scan folder", tostring(tvb(20, 8):le_uint64()),
    tostring(tvb(28, 8):le_uint64()))
end

-- `stream` is nil where nothing is to be remembered: in the datagram that an ICMP
-- error quotes, and in one that was captured in part.
local function dissect_kind(tvb, pinfo, tree, stream, id, valid)
  if id == SERVICE_ID then return dissect_service(tvb, pinfo, tree, stream, valid) end
  if tvb:raw(8, 8) == string.rep("\0", 8) then return dissect_header(tvb, pinfo, tree, stream, id, valid) end
  return dissect_data(tvb, pinfo, tree, stream, id, valid)
end

function tarnwick.dissector(tvb, pinfo, root)
  pinfo.cols.protocol = "TARNWICK"
  local tree = root:add(tarnwick, tvb())
  if tvb:len() < HEADER_SIZE then
    tree:add_proto_expert_info(e.short)
    pinfo.cols.info = "Too short"
    return tvb:len()
  end
  local id = hex_of(tvb:raw(0, 8):reverse())
  tree:add(f.id, tvb(0, 8), id)
  tree:add_le(f.part_no, tvb(8, 8))
  local len_item = tree:add_le(f.data_len, tvb(16, 4))
  local data_len, follow = tvb(16, 4):le_uint(), tvb:reported_len() - HEADER_SIZE
  local valid = data_len == follow
  if not valid then
    len_item:add_proto_expert_info(e.bad_len, string.format("data_len is %d, but %d bytes follow", data_len, follow))
  end
  local whole_datagram = tvb:len() == tvb:reported_len()
  if not whole_datagram then tree:add_proto_expert_info(e.cut) end
  local stream = whole_datagram and not pinfo.in_error_pkt and stream_of(pinfo) or nil
  if stream and not pinfo.visited then stream.since_service = stream.since_service + 1 end
  local text = dissect_kind(tvb, pinfo, tree, stream, id, valid)
  tree:append_text(", " .. text)
  pinfo.cols.info = text
  return tvb:len()
end

-- Which datagrams -------------------------------------------------------------------

-- True for what can hardly be anything else: a service packet, a header packet, or a
-- part of a transfer that is known.
local function looks_like_ours(tvb, pinfo)
  local length = tvb:len()
  if length <= HEADER_SIZE or tvb(16, 4):le_uint() ~= tvb:reported_len() - HEADER_SIZE then return false end
  local id = hex_of(tvb:raw(0, 8):reverse())
  local no_part = tvb:raw(8, 8) == string.rep("\0", 8)
  if id == SERVICE_ID then return length == SERVICE_SIZE and no_part end
  if no_part then
    return length > NAMES_AT and tvb:raw(28, 8) == string.rep("\255", 8) and tvb(36, 4):le_uint() >= MIN_UDATA
      and tvb(36, 4):le_uint() <= MAX_UDATA and tvb:raw(length - 1, 1) == "\0"
  end
  return stream_of(pinfo).transfers[id] ~= nil
end

tarnwick:register_heuristic("udp", function(tvb, pinfo, root)
  if not looks_like_ours(tvb, pinfo) then return false end
  tarnwick.dissector(tvb, pinfo, root)
  return true
end)

local udp_ports, registered = DissectorTable.get("udp.port"), prefs.ports
udp_ports:add(registered, tarnwick)

function tarnwick.prefs_changed()
  if prefs.ports == registered then return end
  udp_ports:remove(registered, tarnwick)
  registered = prefs.ports
  udp_ports:add(registered, tarnwick)
end
