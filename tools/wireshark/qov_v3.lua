-- Dissector of V3 messages: what an agent and its management endpoint say to one another over TCP.
--
-- Written from the byte layout alone, so that it can be held against the library. Numbers are
-- little-endian; nothing is padded:
--   head    28 bytes: magic u32, version u32, RET u32, SSK u32, NID u16, reserved u16, BID u16,
--           SER u16, LEN u32 (bytes of the records behind the head)
--   record  10 bytes: command u64, length u16 of the cells behind it
--   cell     4 bytes: tag (12 bits) and type (4 bits) in a u16, length u16 of the value behind it

local qov = Proto("qov.v3", "QOV management message, version 3")

local HEAD_SIZE = 28
local RECORD_HEAD_SIZE = 10
local CELL_HEAD_SIZE = 4
local VERSION = 3
local SIGNATURE = "UUUU\3\0\0\0" -- magic and version
local LARGEST_BODY = 2097152 - HEAD_SIZE -- an agent receives into 2 MiB, head included
local LARGEST_TYPE = 9
local STATUS_TAG = 4095
local CURSOR_TAG = 4093
-- Serials run through 15 bits: a serial that comes again after more requests than half of them is
-- a new request, not one that is sent again.
local HALF_OF_SERIALS = 16384
local PATIENCE = 30 -- seconds that an agent waits for an answer
-- Seconds after which it has given up: to send, for the head, for what is behind it, and to connect.
local LONGEST = 3 * PATIENCE + 2

local EMPTY_TAG = 4094
local INVALID, OCTET, STRING, UINT, INT = 0, 1, 2, 3, 4
local BOOL, ENUM, ARRAY, JSON, TIME = 5, 6, 7, 8, 9
local TYPE_NAMES = {
  [INVALID] = "Invalid", [OCTET] = "Octet", [STRING] = "String", [UINT] = "Uint", [INT] = "Int",
  [BOOL] = "Bool", [ENUM] = "Enum", [ARRAY] = "Array", [JSON] = "Json", [TIME] = "Time",
}
local TAG_NAMES = { [CURSOR_TAG] = "cursor", [STATUS_TAG] = "status" }

-------------------------------------------------------------------------------------------- fields

local f = {
  magic = ProtoField.uint32("qov.v3.magic", "Magic", base.HEX),
  version = ProtoField.uint32("qov.v3.version", "Version", base.DEC),
  ret = ProtoField.uint32("qov.v3.ret", "RET (result code)", base.DEC),
  ssk = ProtoField.uint32("qov.v3.ssk", "SSK (session key)", base.HEX),
  nid = ProtoField.uint16("qov.v3.nid", "NID", base.DEC_HEX),
  reserved = ProtoField.uint16("qov.v3.reserved", "Reserved", base.HEX),
  bid = ProtoField.uint16("qov.v3.bid", "BID", base.DEC_HEX),
  ser = ProtoField.uint16("qov.v3.ser", "SER (serial number)", base.DEC),
  len = ProtoField.uint32("qov.v3.len", "LEN (length of the records)", base.DEC),

  request = ProtoField.none("qov.v3.request", "Request"),
  response = ProtoField.none("qov.v3.response", "Response"),
  response_in = ProtoField.framenum("qov.v3.response_in", "Response in", base.NONE,
                                    frametype.RESPONSE),
  response_to = ProtoField.framenum("qov.v3.response_to", "Response to the request in", base.NONE,
                                    frametype.REQUEST),
  repeats = ProtoField.framenum("qov.v3.repeats", "Repeats the message in", base.NONE,
                                frametype.RETRANS_PREV),
  time = ProtoField.relative_time("qov.v3.time", "Time since the request"),

  record = ProtoField.none("qov.v3.record", "Record"),
  cmd = ProtoField.uint64("qov.v3.record.cmd", "Command", base.HEX),
  record_length = ProtoField.uint16("qov.v3.record.length", "Length of the cells", base.DEC),

  cell = ProtoField.none("qov.v3.cell", "Cell"),
  tag = ProtoField.uint16("qov.v3.cell.tag", "Tag", base.DEC, nil, 0xFFF0),
  type = ProtoField.uint16("qov.v3.cell.type", "Type", base.DEC, TYPE_NAMES, 0x000F),
  cell_length = ProtoField.uint16("qov.v3.cell.length", "Length of the value", base.DEC),

  invalid = ProtoField.bytes("qov.v3.cell.invalid", "Invalid"),
  octets = ProtoField.bytes("qov.v3.cell.octets", "Octets"),
  string = ProtoField.string("qov.v3.cell.string", "String"),
  uint = ProtoField.uint64("qov.v3.cell.uint", "Uint", base.DEC),
  int = ProtoField.int64("qov.v3.cell.int", "Int", base.DEC),
  bool = ProtoField.uint64("qov.v3.cell.bool", "Bool", base.DEC),
  enum = ProtoField.uint64("qov.v3.cell.enum", "Enum", base.DEC),
  array = ProtoField.string("qov.v3.cell.array", "Array"),
  json = ProtoField.string("qov.v3.cell.json", "Json"),
  time_value = ProtoField.uint64("qov.v3.cell.time", "Time", base.DEC),

  status = ProtoField.uint64("qov.v3.status", "Status", base.DEC),
  cursor = ProtoField.uint64("qov.v3.cursor", "Cursor", base.DEC),
  data = ProtoField.bytes("qov.v3.data", "Data"),
}
local VALUE_FIELDS = {
  [INVALID] = f.invalid, [OCTET] = f.octets, [STRING] = f.string, [UINT] = f.uint, [INT] = f.int,
  [BOOL] = f.bool, [ENUM] = f.enum, [ARRAY] = f.array, [JSON] = f.json, [TIME] = f.time_value,
}
qov.fields = f

local function malformed(name, text)
  return ProtoExpert.new("qov.v3.expert." .. name, text, expert.group.MALFORMED,
                         expert.severity.ERROR)
end
local function remark(name, text, group, severity)
  return ProtoExpert.new("qov.v3.expert." .. name, text, group, severity)
end
local e = {
  -- The last word of a name says what the library refuses such bytes for.
  head_short = malformed("head-short", "The stream ends within a head"),
  magic = malformed("magic", "No message begins here: the magic is not \"UUUU\""),
  version = malformed("version", "The version is not 3"),
  length = malformed("length", "LEN does not fit the bytes that there are"),
  record_short = malformed("record-short", "Too few bytes are left for a record"),
  record_length = malformed("record-length", "The record is too long"),
  cell_short = malformed("cell-short", "Too few bytes are left for a cell"),
  cell_type = malformed("cell-type", "The cell's type is above 9"),
  cell_length = malformed("cell-length", "The cell's value is too long"),

  text = remark("text", "The text is not UTF-8 with a single NUL, at its end",
                expert.group.PROTOCOL, expert.severity.WARN),
  empty = remark("empty", "An agent reads an empty cell as tag " .. EMPTY_TAG .. ", Invalid",
                 expert.group.PROTOCOL, expert.severity.NOTE),
  width = remark("width", "An agent reads the first 8 bytes of this number",
                 expert.group.PROTOCOL, expert.severity.WARN),
  status = remark("status", "A walk ends with an exception here: the status is not a number",
                  expert.group.PROTOCOL, expert.severity.WARN),
  result = remark("result", "RET is not 0", expert.group.RESPONSE_CODE, expert.severity.NOTE),
  serial = remark("serial", "No request with this serial awaits a response",
                  expert.group.SEQUENCE, expert.severity.WARN),
  repeated = remark("repeated", "A message with this serial was seen before",
                    expert.group.SEQUENCE, expert.severity.NOTE),
  cut = remark("cut", "The capture does not show the rest of this message",
               expert.group.UNDECODED, expert.severity.WARN),
  many = remark("many", "The rest of this message is checked but not shown",
                expert.group.UNDECODED, expert.severity.NOTE),
}
qov.experts = e

-- There is a value only where a tree is built. Without one a message that the stream's end cuts off
-- is waited for in vain: Wireshark shows its bytes as TCP's, and nothing else changes.
local tcp_fin = Field.new("tcp.flags.fin")

--------------------------------------------------------------------------------------- preferences

qov.prefs.ports = Pref.range("TCP ports", "19001",
                             "Ports of management endpoints. On other ports a connection is" ..
                             " recognised by a segment that begins with a head.", 65535)
qov.prefs.most_shown = Pref.uint("Most records and cells shown", 20000,
                                 "How many records and cells of one frame get a place in the" ..
                                 " tree. More are checked all the same.")

local tcp_ports = DissectorTable.get("tcp.port")
local registered_ports = nil

-- "1,5-7" as {{1, 1}, {5, 7}}
local function port_ranges(text)
  local ranges = {}
  for first, last in text:gmatch("(%d+)%-?(%d*)") do
    ranges[#ranges + 1] = { tonumber(first), tonumber(last) or tonumber(first) }
  end
  return ranges
end
local endpoint_ports = {}

local function is_endpoint_port(port)
  for _, range in ipairs(endpoint_ports) do
    if port >= range[1] and port <= range[2] then
      return true
    end
  end
  return false
end

local function use_ports(text)
  if text == registered_ports then
    return
  end
  if registered_ports ~= nil and registered_ports ~= "" then
    tcp_ports:remove(registered_ports, qov)
  end
  if text ~= "" then
    tcp_ports:add(text, qov)
  end
  registered_ports = text
  endpoint_ports = port_ranges(text)
end

function qov.prefs_changed()
  use_ports(qov.prefs.ports)
end

----------------------------------------------------------------------------- requests and responses

-- By ports, in lists: which side asks, how often it asked, and its last request with each serial.
local connections = {}
-- By the endpoint's port and the serial, in lists: the connections that wait for that answer.
local waiting = {}
-- By frame and by the message's place in the frame: what was found out when it came by first.
local known_messages = {}

function qov.init()
  connections = {}
  waiting = {}
  known_messages = {}
end

-- Addresses are compared as such: as text they may be names, which several can share and which
-- become known only later.
local function is_from_to(pinfo, from, to)
  return pinfo.src_port == from.port and pinfo.dst_port == to.port and
         pinfo.src == from.address and pinfo.dst == to.address
end

local function new_connection(pinfo)
  local from = { address = pinfo.src, port = pinfo.src_port }
  local to = { address = pinfo.dst, port = pinfo.dst_port }
  local connection = { asking = from, answering = to, requests = 0, asked = 0, latest = {} }
  -- Off the endpoints' ports the side that speaks first is the one that asks.
  if is_endpoint_port(from.port) and not is_endpoint_port(to.port) then
    connection.asking, connection.answering = to, from
  end
  return connection
end

-- The list for these ports, and the place of the connection in it: the end, if it is not there.
local function find_connection(pinfo)
  local source, destination = pinfo.src_port, pinfo.dst_port
  local ports = math.min(source, destination) .. " " .. math.max(source, destination)
  connections[ports] = connections[ports] or {}
  local list = connections[ports]
  for place, connection in ipairs(list) do
    if is_from_to(pinfo, connection.asking, connection.answering) or
       is_from_to(pinfo, connection.answering, connection.asking) then
      return list, place
    end
  end
  return list, #list + 1
end

-- Another connection than the one that had these addresses and ports before.
local function begin_connection(pinfo)
  local list, place = find_connection(pinfo)
  list[place] = new_connection(pinfo)
end

local function connection_of(pinfo)
  local list, place = find_connection(pinfo)
  list[place] = list[place] or new_connection(pinfo)
  return list[place]
end

-- An agent asks one thing at a time, so a connection waits for the answer to its last request only.
local function stop_waiting(connection)
  local list = connection.waits_in
  for place = 1, list and #list or 0 do
    if list[place] == connection then
      table.remove(list, place)
      break
    end
  end
  connection.waits_in, connection.bytes = nil, nil
end

local function wait_for(connection, serial, bytes, pinfo)
  stop_waiting(connection)
  local key = connection.answering.port .. " " .. serial
  waiting[key] = waiting[key] or {}
  table.insert(waiting[key], connection)
  connection.waits_in = waiting[key]
  connection.bytes, connection.frame, connection.since = bytes, pinfo.number, pinfo.rel_ts
  connection.asked = connection.asked + 1
end

-- An agent that gets no answer connects anew and begins with the same request. Where that was sent
-- last; whether the other connection was given up indeed may show later, see repeated_by().
local function find_given_up(connection, serial, bytes, now)
  local list = waiting[connection.answering.port .. " " .. serial] or {}
  for place = #list, 1, -1 do
    local other = list[place]
    if other.bytes == bytes and now - other.since <= LONGEST and
       other.asking.address == connection.asking.address and
       other.answering.address == connection.answering.address then
      return { connection = other, asked = other.asked, frame = other.frame,
               too_late = now - other.since >= PATIENCE }
    end
  end
  return nil
end

local function take_request(connection, serial, bytes, pinfo)
  local given_up = connection.asked == 0 and
                   find_given_up(connection, serial, bytes, pinfo.rel_ts) or nil
  wait_for(connection, serial, bytes, pinfo)
  local exchange = connection.latest[serial]
  if exchange and not exchange.response and
     connection.requests - exchange.number < HALF_OF_SERIALS then
    return { exchange = exchange, repeats = exchange.request }
  end
  connection.requests = connection.requests + 1
  exchange = { number = connection.requests, request = pinfo.number, asked = pinfo.rel_ts }
  connection.latest[serial] = exchange
  return { exchange = exchange, given_up = given_up }
end

-- With `is_usable` false an agent gives up at it: too long, or cut off.
local function take_response(connection, serial, is_usable, pinfo)
  local exchange = connection.latest[serial]
  local message = { response = true, exchange = exchange }
  if is_usable then
    stop_waiting(connection)
  end
  if exchange and exchange.response then
    message.repeats = exchange.response
  elseif exchange then
    exchange.response = pinfo.number
    exchange.took = pinfo.rel_ts - exchange.asked
  end
  return message
end

-- A connection over which more is asked was not given up. Nor was one that is still answered, unless
-- the answer came too late.
local function is_given_up(given_up)
  local connection = given_up.connection
  return connection.asked == given_up.asked and (connection.waits_in or given_up.too_late)
end

-- The frame with the message that this one repeats, or nil.
local function repeated_by(message)
  if message.given_up and is_given_up(message.given_up) then
    return message.given_up.frame
  end
  return message.repeats
end

-- The message's place in its frame, counted from 1. It cannot be told from the offset: a frame may
-- end one buffer of joined segments and begin another.
local function next_place(pinfo)
  local place = (tonumber(pinfo.private["qov.v3.place"]) or 0) + 1
  pinfo.private["qov.v3.place"] = tostring(place)
  return place
end

-- `range` is the whole message; `is_usable` is for a response, see take_response().
local function what_is_known(place, serial, range, is_usable, pinfo)
  local of_frame = known_messages[pinfo.number]
  if of_frame == nil then
    of_frame = {}
    known_messages[pinfo.number] = of_frame
  end
  if of_frame[place] == nil then
    local connection = connection_of(pinfo)
    if is_from_to(pinfo, connection.asking, connection.answering) then
      of_frame[place] = take_request(connection, serial, range:raw(), pinfo)
    else
      of_frame[place] = take_response(connection, serial, is_usable, pinfo)
    end
  end
  return of_frame[place]
end

local function add_generated(tree, field, range, value)
  tree:add(field, range, value):set_generated()
end

-- To the nearest nanosecond first: what should be a whole second may be a little less. Of a time
-- below 0, which a capture in disorder has, both parts are.
local function seconds_of(time)
  local nanoseconds = math.floor(time * 1e9 + 0.5)
  local seconds = math.modf(nanoseconds / 1e9)
  return NSTime(seconds, nanoseconds - seconds * 1e9)
end

local function add_exchange(tree, message, serial_item, tvb)
  local nothing = tvb(0, 0)
  tree:add(message.response and f.response or f.request, nothing):set_generated()
  local exchange = message.exchange
  if message.response and exchange then
    add_generated(tree, f.response_to, nothing, exchange.request)
    if not message.repeats then
      add_generated(tree, f.time, nothing, seconds_of(exchange.took))
    end
  elseif message.response then
    serial_item:add_proto_expert_info(e.serial)
  elseif exchange.response then
    add_generated(tree, f.response_in, nothing, exchange.response)
  end
  local repeated = repeated_by(message)
  if repeated then
    add_generated(tree, f.repeats, nothing, repeated)
    serial_item:add_proto_expert_info(e.repeated)
  end
end

-------------------------------------------------------------------------------------------- values

-- What an agent reads: of more than 8 bytes the first 8; 1, 2, 4 and 8 bytes with their sign if
-- there is one; 3 and 5 to 7 bytes without.
local function number_of(tvb, offset, length, signed)
  local range = tvb(offset, math.min(length, 8))
  if not signed then
    return range:le_uint64()
  end
  if length >= 8 then
    return range:le_int64()
  elseif length == 1 or length == 2 or length == 4 then
    return Int64(range:le_int())
  end
  local bits = range:le_uint64()
  return Int64(bits:lower(), bits:higher())
end

-- By first byte: how many bytes a character has, and between what its second byte lies.
local function utf8_rule(first)
  if first < 0x80 then return 1, 0, 0 end
  if first < 0xC2 then return nil end
  if first < 0xE0 then return 2, 0x80, 0xBF end
  if first == 0xE0 then return 3, 0xA0, 0xBF end
  if first == 0xED then return 3, 0x80, 0x9F end
  if first < 0xF0 then return 3, 0x80, 0xBF end
  if first == 0xF0 then return 4, 0x90, 0xBF end
  if first < 0xF4 then return 4, 0x80, 0xBF end
  if first == 0xF4 then return 4, 0x80, 0x8F end
  return nil
end

local function is_utf8(text)
  local at = text:find("[\128-\255]")
  while at do
    local size, lowest, highest = utf8_rule(text:byte(at))
    if size == nil then
      return false
    end
    for i = 1, size - 1 do
      local byte = text:byte(at + i)
      if byte == nil or byte < lowest or byte > highest then
        return false
      end
      lowest, highest = 0x80, 0xBF
    end
    at = text:find("[\128-\255]", at + size)
  end
  return true
end

local function is_text(bytes)
  return bytes:find("\0", 1, true) == #bytes and is_utf8(bytes)
end

local function escaped(bytes)
  return (bytes:gsub(".", function(byte) return ("\\x%02x"):format(byte:byte()) end))
end

-- UTF-8 text without what could steer a terminal (C0, DEL, C1) or set the direction of writing
-- (U+061C, U+200E, U+200F, U+202A to U+202E, U+2066 to U+2069).
local function without_controls(text)
  return (text:gsub("[\1-\31\127]", escaped)
              :gsub("\194[\128-\159]", escaped)
              :gsub("\216\156", escaped)
              :gsub("\226\128[\142\143\170-\174]", escaped)
              :gsub("\226\129[\166-\169]", escaped))
end

local function is_number_type(type)
  return type > STRING
end

local function add_number(tree, field, tvb, offset, length, signed)
  local value = number_of(tvb, offset, length, signed)
  local item = tree:add(field, tvb(offset, length), value)
  if length > 8 then
    item:add_proto_expert_info(e.width)
  end
  return tostring(value)
end

local function add_text(tree, field, tvb, offset, length)
  local range = tvb(offset, length)
  if not is_text(range:raw()) then
    tree:add(f.octets, range):add_proto_expert_info(e.text)
    return length .. " bytes that are no text"
  end
  tree:add_packet_field(field, range, ENC_UTF_8)
  return '"' .. without_controls(range:stringz(ENC_UTF_8)) .. '"'
end

-- Adds the value by its type; how it reads in one line.
local function add_value(tree, type, tvb, offset, length)
  local field = VALUE_FIELDS[type]
  if type == INVALID or type == OCTET then
    tree:add(field, tvb(offset, length))
    return length .. " bytes"
  elseif type == STRING or type == ARRAY or type == JSON then
    return add_text(tree, field, tvb, offset, length)
  end
  return add_number(tree, field, tvb, offset, length, type == INT)
end

-- The cells that a walk goes by are found by their tag, whatever type of number they have. Each is
-- the first of its tag in its record.
local function add_walk_fields(m, tree, tag, type, offset, length)
  if TAG_NAMES[tag] == nil or m.found[tag] then
    return
  end
  m.found[tag] = true
  if not is_number_type(type) then
    if tag == STATUS_TAG then
      tree:add_proto_expert_info(e.status)
    end
    return
  end
  local value = number_of(m.tvb, offset, length, type == INT)
  if type == INT then
    value = UInt64.decode(value:encode())
  end
  add_generated(tree, tag == STATUS_TAG and f.status or f.cursor, m.tvb(offset, length), value)
  if tag == STATUS_TAG then
    m.status = m.status or tostring(value)
  end
end

---------------------------------------------------------------------------------- records and cells

-- The walk over a message's body knows, in `m`: tvb; tree, the message's item; at, where the body
-- begins; size, how long it is; held, how much of it the buffer holds; bytes, these as a string,
-- which is read much faster than tvb; stream, which counts what is shown; found, the tags of a walk
-- that the record at hand has had.

-- `tree` is the item that the fault is at, if it is shown.
local function fail(m, tree, problem, text, position)
  (tree or m.tree):add_proto_expert_info(problem, text)
  if position < m.held then
    m.tree:add(f.data, m.tvb(m.at + position, m.held - position)):set_text(
        "Not decoded: " .. (m.held - position) .. " bytes")
  end
  return nil
end

local function u16_at(m, position)
  local low, high = m.bytes:byte(position + 1, position + 2)
  return low + 256 * high
end

local function cut(m)
  m.tree:add_proto_expert_info(e.cut)
  return nil
end

-- Wireshark's limit is for a frame, in which there may be many messages.
local function can_show(m)
  local stream = m.stream
  if stream.shown < qov.prefs.most_shown then
    stream.shown = stream.shown + 1
    return true
  end
  if not m.told_of_many then
    m.told_of_many = true
    m.tree:add_proto_expert_info(e.many, "Only the first " .. stream.shown ..
        " records and cells of this frame are shown")
  end
  return false
end

local function show_cell(m, record_tree, position, tag, type, length)
  local at = m.at + position
  local name = TAG_NAMES[tag] and " (" .. TAG_NAMES[tag] .. ")" or ""
  local tree = record_tree:add(f.cell, m.tvb(at, CELL_HEAD_SIZE + length))
  tree:add_le(f.tag, m.tvb(at, 2)):append_text(name)
  tree:add_le(f.type, m.tvb(at, 2))
  tree:add_le(f.cell_length, m.tvb(at + 2, 2))
  local text = "empty"
  if length == 0 then
    tree:add_proto_expert_info(e.empty)
  else
    text = add_value(tree, type, m.tvb, at + CELL_HEAD_SIZE, length)
    add_walk_fields(m, tree, tag, type, at + CELL_HEAD_SIZE, length)
  end
  tree:set_text("Cell: tag " .. tag .. name .. ", " .. TYPE_NAMES[type] .. ", " .. text)
end

-- One cell at `position` of the body; the record ends at `record_end`. Where the next one begins,
-- or nil if there is nothing more to be had from this message. Whether a head is there goes by the
-- message's end, as the agents have it; where the cell has to end, by the record's.
local function take_cell(m, record_tree, position, record_end)
  local left = record_end - position
  if m.size - position < CELL_HEAD_SIZE then
    return fail(m, record_tree, e.cell_short, "Too few bytes are left for a cell: " .. left ..
        " of " .. CELL_HEAD_SIZE, position)
  end
  if position + CELL_HEAD_SIZE > m.held then
    return cut(m)
  end
  local packed, length = u16_at(m, position), u16_at(m, position + 2)
  local tag, type = math.floor(packed / 16), packed % 16
  if type > LARGEST_TYPE then
    return fail(m, record_tree, e.cell_type, "The cell's type " .. type .. " is above " ..
        LARGEST_TYPE, position)
  end
  if left < CELL_HEAD_SIZE then
    return fail(m, record_tree, e.cell_length, "The cell's head goes beyond its record: " .. left ..
        " of " .. CELL_HEAD_SIZE .. " bytes are left", position)
  end
  if length > left - CELL_HEAD_SIZE then
    return fail(m, record_tree, e.cell_length, "The cell's value is too long: " .. length ..
        " bytes where " .. left - CELL_HEAD_SIZE .. " are left", position)
  end
  local next_position = position + CELL_HEAD_SIZE + length
  if next_position > m.held then
    return cut(m)
  end
  if record_tree and can_show(m) then
    show_cell(m, record_tree, position, tag, type, length)
  end
  m.cells = m.cells + 1
  return next_position
end

local function command_at(m, position)
  return "0x" .. m.tvb(m.at + position, 8):le_uint64():tohex()
end

local function show_record(m, position, length)
  local at = m.at + position
  local there = math.min(RECORD_HEAD_SIZE + length, m.held - position)
  local tree = m.tree:add(f.record, m.tvb(at, there))
  tree:add_le(f.cmd, m.tvb(at, 8))
  tree:add_le(f.record_length, m.tvb(at + 8, 2))
  tree:set_text("Record: command " .. command_at(m, position) .. ", " .. length ..
                " bytes of cells")
  return tree
end

-- One record at `position` of the body. Where the next one begins, or nil.
local function take_record(m, position)
  local left = m.size - position
  if left < RECORD_HEAD_SIZE then
    return fail(m, m.tree, e.record_short, "Too few bytes are left for a record: " .. left ..
        " of " .. RECORD_HEAD_SIZE, position)
  end
  if position + RECORD_HEAD_SIZE > m.held then
    return cut(m)
  end
  m.command = m.command or command_at(m, position)
  local length = u16_at(m, position + 8)
  local too_long = RECORD_HEAD_SIZE + length > left
  local tree = (too_long or can_show(m)) and show_record(m, position, length) or nil
  if too_long then
    return fail(m, tree, e.record_length, "The record is too long: " .. length ..
        " bytes of cells where " .. left - RECORD_HEAD_SIZE .. " are left",
        position + RECORD_HEAD_SIZE)
  end
  m.records = m.records + 1
  m.found = {}
  position = position + RECORD_HEAD_SIZE
  local record_end = position + length
  while position and position < record_end do
    position = take_cell(m, tree, position, record_end)
  end
  return position
end

local function take_body(m)
  m.bytes = m.held > 0 and m.tvb:raw(m.at, m.held) or ""
  local position = 0
  while position and position < m.size do
    position = take_record(m, position)
  end
  m.whole = position ~= nil
end

------------------------------------------------------------------------------------------- messages

-- The body's size as an agent reads it, and what is wrong with LEN if something is.
local function body_size(tvb, offset)
  local len = tvb(offset + 24, 4):le_int()
  if len < 0 then
    return 0, "LEN is negative as an agent reads it (" .. len .. "): no body follows"
  elseif len > LARGEST_BODY then
    return 0, "LEN " .. len .. " is more than the " .. LARGEST_BODY .. " bytes that an agent" ..
        " receives: it closes the connection"
  end
  return len, nil
end

local function add_head(tree, tvb, offset)
  tree:add_le(f.magic, tvb(offset, 4))
  local version = tree:add_le(f.version, tvb(offset + 4, 4))
  local ret = tree:add_le(f.ret, tvb(offset + 8, 4))
  tree:add_le(f.ssk, tvb(offset + 12, 4))
  tree:add_le(f.nid, tvb(offset + 16, 2))
  tree:add_le(f.reserved, tvb(offset + 18, 2))
  tree:add_le(f.bid, tvb(offset + 20, 2))
  local serial = tree:add_le(f.ser, tvb(offset + 22, 2))
  local len = tree:add_le(f.len, tvb(offset + 24, 4))
  return version, ret, serial, len
end

local function say(pinfo, place, text)
  if place == 1 then
    pinfo.cols.protocol = "QOV V3"
    pinfo.cols.info = text
  else
    pinfo.cols.info:append(" | " .. text)
  end
end

local function summary(m, known, serial, ret)
  local parts = { known.response and "Response" or "Request", "SER=" .. serial }
  if ret ~= 0 then
    parts[#parts + 1] = "RET=" .. ret
  end
  if m.command then
    parts[#parts + 1] = "cmd=" .. m.command
  end
  parts[#parts + 1] = "records=" .. m.records
  parts[#parts + 1] = "cells=" .. m.cells
  if m.status then
    parts[#parts + 1] = "status=" .. m.status
  end
  local repeated = repeated_by(known)
  if repeated then
    parts[#parts + 1] = "[repeats frame " .. repeated .. "]"
  end
  if not m.whole then
    parts[#parts + 1] = "[not whole]"
  end
  return table.concat(parts, " ")
end

-- Shows the message at `offset`, of which the buffer may hold less than there should be. How many
-- bytes of the buffer it takes.
local function show_message(stream, offset)
  local tvb, pinfo = stream.tvb, stream.pinfo
  local size, complaint = body_size(tvb, offset)
  local held = math.min(size, tvb:len() - offset - HEAD_SIZE)
  local tree = stream.root:add(qov, tvb(offset, HEAD_SIZE + held))
  local version_item, ret_item, serial_item, len_item = add_head(tree, tvb, offset)
  local version = tvb(offset + 4, 4):le_uint()
  local ret = tvb(offset + 8, 4):le_uint()
  local serial = tvb(offset + 22, 2):le_uint()
  local place = next_place(pinfo)
  local known = what_is_known(place, serial, tvb(offset, HEAD_SIZE + held),
                              held == size and not complaint, pinfo)
  add_exchange(tree, known, serial_item, tvb)

  local m = { stream = stream, tvb = tvb, tree = tree, at = offset + HEAD_SIZE, size = size,
              held = held, records = 0, cells = 0, whole = false }
  if ret ~= 0 then
    ret_item:add_proto_expert_info(e.result, "RET is " .. ret)
  end
  if complaint then
    len_item:add_proto_expert_info(e.length, complaint)
  elseif stream.ended and held < size then
    len_item:add_proto_expert_info(e.length, "LEN is " .. size .. " but the stream ends after " ..
        held .. " bytes")
  end
  if version ~= VERSION then
    fail(m, version_item, e.version, "The version is " .. version .. ", not " .. VERSION, 0)
  elseif not complaint then
    take_body(m)
  end
  local text = summary(m, known, serial, ret)
  tree:append_text(": " .. text)
  say(pinfo, place, text)
  return HEAD_SIZE + held
end

-- Bytes that belong to no message: an expert item, and they are left as they are.
local function show_stray(stream, offset, count, problem)
  local range = stream.tvb(offset, count)
  local tree = stream.root:add(qov, range)
  tree:append_text(": " .. count .. " bytes that are no message")
  tree:add(f.data, range)
  tree:add_proto_expert_info(problem)
  say(stream.pinfo, next_place(stream.pinfo), "No message (" .. count .. " bytes)")
end

-------------------------------------------------------------------------------------------- streams

-- What one call of the dissector works on, in `stream`: tvb, pinfo, root; can_wait, whether the
-- bytes of the following segments may be asked for; ended, whether there are none; shown, how many
-- records and cells have a place in the tree; bytes, the buffer's content once it was needed.

-- Where, behind `offset`, there may be a head: the whole signature or, at the buffer's end, the
-- beginning of one; the buffer's end if nowhere.
local function next_head(stream, offset)
  stream.bytes = stream.bytes or stream.tvb:raw()
  local bytes = stream.bytes
  local found = bytes:find(SIGNATURE, offset + 1, true)
  if found then
    return found - 1
  end
  for count = math.min(#SIGNATURE, #bytes - offset) - 1, 1, -1 do
    if bytes:sub(-count) == SIGNATURE:sub(1, count) then
      return #bytes - count
    end
  end
  return #bytes
end

local function begins_with_magic(tvb, offset)
  local count = math.min(4, tvb:len() - offset)
  return tvb:raw(offset, count) == SIGNATURE:sub(1, count)
end

-- Takes what lies at `offset`. How many bytes that is, or nil and how many more are needed.
local function take_next(stream, offset)
  local tvb = stream.tvb
  local left = tvb:len() - offset
  if left < HEAD_SIZE and stream.ended then
    show_stray(stream, offset, left, e.head_short)
    return left
  end
  if not begins_with_magic(tvb, offset) then
    local count = next_head(stream, offset) - offset
    show_stray(stream, offset, count, e.magic)
    return count
  end
  if left < HEAD_SIZE then
    if stream.can_wait then
      return nil, DESEGMENT_ONE_MORE_SEGMENT
    end
    show_stray(stream, offset, left, e.cut)
    return left
  end
  local whole = HEAD_SIZE + body_size(tvb, offset)
  if whole > left and stream.can_wait then
    return nil, whole - left
  end
  return show_message(stream, offset)
end

local function dissect(tvb, pinfo, root)
  local fin = tcp_fin()
  local ended = fin ~= nil and fin.value == true
  local stream = { tvb = tvb, pinfo = pinfo, root = root, ended = ended, shown = 0,
                   can_wait = pinfo.can_desegment > 0 and not ended }
  local offset = 0
  while offset < tvb:len() do
    local taken, wanted = take_next(stream, offset)
    if taken == nil then
      pinfo.desegment_offset = offset
      pinfo.desegment_len = wanted
      return tvb:len()
    end
    offset = offset + taken
  end
  return offset
end

-- TCP asks for a dissector by port, or for one that recognises the bytes, when its conversation has
-- none: at the begin of every connection, also of one with addresses and ports that another one had.
-- tcp.stream would say the same, but it has no value where a frame is read without a tree.
local function take_conversation(pinfo)
  pinfo.conversation = qov
  if not pinfo.visited then
    begin_connection(pinfo)
  end
end

function qov.dissector(tvb, pinfo, root)
  -- The port, when it was by that that the dissector was found.
  local matched = pinfo.match_uint
  if matched == pinfo.src_port or matched == pinfo.dst_port then
    take_conversation(pinfo)
  end
  return dissect(tvb, pinfo, root)
end

local function recognise(tvb, pinfo, root)
  if tvb:len() < #SIGNATURE or tvb:raw(0, #SIGNATURE) ~= SIGNATURE then
    return false
  end
  take_conversation(pinfo)
  -- Not through qov.dissector, which may not ask for more bytes when it is called from here.
  dissect(tvb, pinfo, root)
  return true
end

qov:register_heuristic("tcp", recognise)
use_ports(qov.prefs.ports)
