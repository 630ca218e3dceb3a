-- Shows the protocol of the Sorvane name server in Wireshark and tshark. docs/protocol.md describes the protocol.
--
-- Wireshark loads the file from its folders of Lua plugins ("Help", "About", "Folders"), tshark from the same, or by
-- `tshark -X lua_script:sorvane.lua`. Filters begin with "sorvane.": sorvane.command == "findPort",
-- sorvane.name == "db1", sorvane.time > 0.1, sorvane.bad. For Lua 5.2 and newer, so without operators that only 5.3 has.

local sorvane = Proto("sorvane", "Sorvane Name Server Protocol")

-- ---- Preferences

sorvane.prefs.ports = Pref.range("TCP ports", "20221", "Ports of name servers (BasePort in their settings)", 65535)
sorvane.prefs.request_bytes = Pref.uint("Longest request", 1048576, "Longest body of a request (MaxMessageBytes)")
sorvane.prefs.shown_entries = Pref.uint("Entries shown", 1000, "Most entries of a message that are looked at")

local longest_reply = 64 * 1024 * 1024
-- A longer text is shown as bytes alone. The list names so many frames of a packet, and so many requests of a
-- connection may wait for their replies.
local longest_text = 65536
local most_listed = 5
local most_waiting = 100000
-- Seconds: longer than a server holds a request. One that waits for longer is of an earlier connection with the same
-- ends.
local longest_wait = 330

-- ---- Fields

local field = {
  mark = ProtoField.bytes("sorvane.mark", "Mark"),
  version = ProtoField.uint8("sorvane.version", "Version"),
  kind = ProtoField.uint8("sorvane.kind", "Kind", base.DEC, { [0] = "no dictionary", [1] = "dictionary" }),
  length = ProtoField.uint32("sorvane.length", "Length of the body"),
  request = ProtoField.bool("sorvane.request", "Request"),
  command = ProtoField.string("sorvane.command", "Command"),
  name = ProtoField.string("sorvane.name", "Name", base.UNICODE),
  response_in = ProtoField.framenum("sorvane.response_in", "Reply in", base.NONE, frametype.RESPONSE),
  response_to = ProtoField.framenum("sorvane.response_to", "Reply to the request in", base.NONE, frametype.REQUEST),
  time = ProtoField.relative_time("sorvane.time", "Time since the request"),
  count = ProtoField.uint32("sorvane.entries", "Entries"),
  entry = ProtoField.bytes("sorvane.entry", "Entry"),
  key_length = ProtoField.uint16("sorvane.key_length", "Length of the key"),
  value_length = ProtoField.uint32("sorvane.value_length", "Length of the value"),
  key = ProtoField.string("sorvane.key", "Key", base.UNICODE),
  value = ProtoField.bytes("sorvane.value", "Value"),
  text = ProtoField.string("sorvane.text", "Text", base.UNICODE),
  row = ProtoField.bytes("sorvane.row", "Row"),
  row_name = ProtoField.string("sorvane.row.name", "Name of the row", base.UNICODE),
  rest = ProtoField.bytes("sorvane.rest", "Entries that are not looked at"),
  bad = ProtoField.bytes("sorvane.bad", "No frame, nor what follows"),
}
sorvane.fields = field

local function fault(name, text)
  return ProtoExpert.new("sorvane.fault." .. name, text, expert.group.MALFORMED, expert.severity.ERROR)
end

local faults = {
  mark = fault("mark", "The mark is not \"SV\""),
  version = fault("version", "The version is not 1"),
  kind = fault("kind", "There is no such kind"),
  no_request = fault("no_request", "Only a server sends \"no dictionary\""),
  body = fault("body", "\"No dictionary\" has no body"),
  too_long = fault("too_long", "The body is longer than the receiver takes"),
  past_body = fault("past_body", "An entry runs past the body"),
  repeated = fault("repeated", "A key occurs twice"),
  key = fault("key", "A key is not UTF-8, or contains a NUL"),
}
sorvane.experts = faults

-- ---- Commands

-- The first row that matches applies: all of its keys are there, and the action is its action, in any case of its
-- letters.
local commands = {
  { keys = { "ping" } },
  { keys = { "reconnectPort" } },
  { keys = { "findPort" } },
  { keys = { "acceptPort" } },
  { keys = { "terminate" } },
  { action = "restart" },
  { keys = { "newPort", "portHost", "portName", "portType" } },
  { action = "needsRefresh" },
  { action = "setAlertState" },
  { action = "setDatabaseState" },
  { action = "databaseStates" },
  { action = "watchPortChanges" },
  { action = "didPortsChange" },
  { action = "changeTimestamp" },
  { action = "sorvexecConnectHost" },
  { action = "hostInfo" },
  { action = "hostList" },
  { action = "awaitPortChanges" },
  { action = "portChanges" },
  { action = "forgetPort" },
  { action = "continuity" },
  { action = "get_userpreferences_key" },
  { action = "set_userpreferences_key" },
  { action = "set_userpreferences" },
  { action = "get_userpreferences" },
}

local function has_all(texts, keys)
  for _, key in ipairs(keys) do
    if texts[key] == nil then
      return false
    end
  end
  return true
end

local function command_of(texts)
  local action = string.lower(texts.action or "")
  for _, row in ipairs(commands) do
    if row.keys and has_all(texts, row.keys) then
      return row.keys[1]
    elseif row.action and string.lower(row.action) == action then
      return row.action
    end
  end
  return "unknown"
end

-- The key whose text is the name that a request is about.
local function name_key(command)
  if command == "findPort" or command == "reconnectPort" then
    return command
  end
  local keys = { newPort = "portName", setDatabaseState = "databaseName", setAlertState = "databaseName",
                 forgetPort = "name" }
  return keys[command]
end

-- ---- Texts

-- Whether the bytes are UTF-8, by the ranges of the Unicode standard: no surrogates, nothing longer than needed.
local function is_utf8(bytes)
  local at, length = 1, #bytes
  while at <= length do
    local first = bytes:byte(at)
    local more, low, high = 0, 0x80, 0xBF
    if first >= 0xC2 and first <= 0xDF then
      more = 1
    elseif first >= 0xE0 and first <= 0xEF then
      more = 2
      low = first == 0xE0 and 0xA0 or low
      high = first == 0xED and 0x9F or high
    elseif first >= 0xF0 and first <= 0xF4 then
      more = 3
      low = first == 0xF0 and 0x90 or low
      high = first == 0xF4 and 0x8F or high
    elseif first >= 0x80 then
      return false
    end
    for place = 1, more do
      local byte = bytes:byte(at + place)
      if byte == nil or byte < low or byte > high then
        return false
      end
      low, high = 0x80, 0xBF
    end
    at = at + 1 + more
  end
  return true
end

-- The text of a value: what stands before the first NUL. Nil if it is no text, or too long to look at.
local function text_of(range)
  if range:len() == 0 then
    return nil
  end
  local bytes = range(0, math.min(range:len(), longest_text)):raw()
  local nul = bytes:find("\0", 1, true)
  if nul == nil and range:len() > longest_text then
    return nil
  end
  local text = nul and bytes:sub(1, nul - 1) or bytes
  return is_utf8(text) and text or nil
end

-- For the lines of the tree and of the list: short, and without control characters.
local function shown(text)
  text = text:gsub("[%c]", "?")
  if #text <= 60 then
    return text
  end
  local cut = 60
  while cut > 0 and not is_utf8(text:sub(1, cut)) do
    cut = cut - 1
  end
  return text:sub(1, cut) .. "..."
end

-- ---- What is known of each message, and of each connection

local messages, connections

function sorvane.init()
  messages, connections = {}, {}
end

-- The requests of a connection that wait for their replies, oldest first. A connection is known by its ends: the
-- fields of TCP cannot be read while Wireshark looks at a capture for the first time.
local function waiting_requests(pinfo, is_request)
  local one = tostring(pinfo.src) .. " " .. pinfo.src_port
  local other = tostring(pinfo.dst) .. " " .. pinfo.dst_port
  local ends = is_request and one .. " " .. other or other .. " " .. one
  if connections[ends] == nil then
    connections[ends] = { first = 1, last = 0 }
  end
  return connections[ends]
end

-- What is known of the message at this place. The same bytes are dissected more than once, in any order.
local function message_at(pinfo, range)
  local place = pinfo.number .. "/" .. range:offset() .. "/" .. range:len()
  local message = messages[place]
  if message == nil then
    message = { frame = pinfo.number, time = pinfo.rel_ts }
    messages[place] = message
  end
  return message
end

local function await_reply(waiting, message)
  if waiting.last - waiting.first + 1 < most_waiting then
    waiting.last = waiting.last + 1
    waiting[waiting.last] = message
  end
end

local function take_request(waiting, message)
  local request
  repeat
    request = waiting[waiting.first]
    if request then
      waiting[waiting.first] = nil
      waiting.first = waiting.first + 1
    end
  until request == nil or message.time - request.time < longest_wait
  if request then
    request.reply_in = message.frame
    message.request = request
  end
end

-- ---- Entries

local read_entries

-- A row of a reply to portChanges: entries again, without a frame.
local function add_row(value, tree)
  local row = tree:add(field.row, value)
  local texts = read_entries(value, row, true)
  local name = texts.name
  row:set_text("Row: " .. shown(name or "without a name") .. (texts.gone and ", gone" or ""))
  if name then
    row:add(field.row_name, value, name):set_generated()
  end
end

-- Adds one entry to the tree. Returns its key, its text if it has one, and where the next entry begins; or nothing.
local function add_entry(body, at, tree, known, is_row)
  local left = body:len() - at
  if left < 6 then
    tree:add_proto_expert_info(faults.past_body)
    return nil
  end
  local key_bytes, value_bytes = body(at, 2):uint(), body(at + 2, 4):uint()
  if left - 6 < key_bytes or left - 6 - key_bytes < value_bytes then
    tree:add(field.entry, body(at)):add_proto_expert_info(faults.past_body)
    return nil
  end
  local entry = tree:add(field.entry, body(at, 6 + key_bytes + value_bytes))
  entry:add(field.key_length, body(at, 2))
  entry:add(field.value_length, body(at + 2, 4))
  local key = ""
  if key_bytes > 0 then
    key = body(at + 6, key_bytes):raw()
    if key:find("\0", 1, true) or not is_utf8(key) then
      entry:add_proto_expert_info(faults.key)
      key = key:gsub("[^%g ]", "?")
    end
    entry:add(field.key, body(at + 6, key_bytes), key)
  end
  if known[key] ~= nil then
    entry:add_proto_expert_info(faults.repeated)
  end
  local text = ""
  if value_bytes > 0 then
    local value = body(at + 6 + key_bytes, value_bytes)
    entry:add(field.value, value)
    if not is_row and known.instance and key:find("^%d+$") then
      add_row(value, entry)
    else
      text = text_of(value)
      if text then
        entry:add(field.text, value, text)
      end
    end
  end
  entry:set_text(shown(key) .. ": " .. (text and shown(text) or value_bytes .. " bytes"))
  return key, text, at + 6 + key_bytes + value_bytes
end

-- Adds the entries of a body to the tree. Returns their texts by key ("" where a value is no text), and the first key.
read_entries = function(body, tree, is_row)
  local texts, first, at, count = {}, nil, 0, 0
  while at < body:len() do
    if count == sorvane.prefs.shown_entries then
      tree:add(field.rest, body(at))
      return texts, first
    end
    local key, text, next_at = add_entry(body, at, tree, texts, is_row)
    if key == nil then
      return texts, first
    end
    texts[key] = text or ""
    first = first or key
    count = count + 1
    at = next_at
  end
  if not is_row then
    tree:add(field.count, count):set_generated()
  end
  return texts, first
end

-- ---- Frames

-- What is wrong with a header, of which perhaps not all bytes are there. Nil if nothing is.
local function header_fault(range, is_request)
  local there = math.min(range:len(), 8)
  local mark = range(0, math.min(there, 2)):raw()
  if mark ~= ("SV"):sub(1, #mark) then
    return faults.mark
  elseif there > 2 and range(2, 1):uint() ~= 1 then
    return faults.version
  elseif there > 3 and range(3, 1):uint() > 1 then
    return faults.kind
  elseif there > 3 and is_request and range(3, 1):uint() == 0 then
    return faults.no_request
  elseif there == 8 and range(3, 1):uint() == 0 and range(4, 4):uint() > 0 then
    return faults.body
  elseif there == 8 and range(4, 4):uint() > (is_request and sorvane.prefs.request_bytes or longest_reply) then
    return faults.too_long
  end
  return nil
end

local function add_header(range, tree)
  tree:add(field.mark, range(0, 2))
  tree:add(field.version, range(2, 1))
  tree:add(field.kind, range(3, 1))
  tree:add(field.length, range(4, 4))
end

-- A line for the list of packets, such as "findPort db1" or "findPort: portNumber 20222".
local function summary(is_request, command, name, kind, texts, first)
  if is_request then
    return command .. (name and " " .. shown(name) or "")
  end
  local line = command and command .. ": " or "reply: "
  if kind == 0 then
    return line .. "no dictionary"
  end
  return line .. (first and shown(first) .. " " .. shown(texts[first]) or "empty dictionary")
end

local function add_matching(message, is_request, range, tree)
  if is_request then
    if message.reply_in then
      tree:add(field.response_in, range(0, 0), message.reply_in):set_generated()
    end
  elseif message.request then
    tree:add(field.response_to, range(0, 0), message.request.frame):set_generated()
    local passed = math.max(0, message.time - message.request.time)
    local seconds = math.floor(passed)
    local nanoseconds = math.floor((passed - seconds) * 1e9 + 0.5)
    tree:add(field.time, range(0, 0), NSTime.new(seconds, nanoseconds)):set_generated()
  end
end

local function add_message(range, pinfo, root, is_request)
  local tree = root:add(sorvane, range)
  local kind = range(3, 1):uint()
  add_header(range, tree)
  tree:add(field.request, range(0, 0), is_request):set_generated()
  local texts, first = {}, nil
  if range:len() > 8 then
    texts, first = read_entries(range(8), tree, false)
  elseif kind == 1 then
    tree:add(field.count, 0):set_generated()
  end

  local message = message_at(pinfo, range)
  if not pinfo.visited and not message.seen then
    message.seen = true
    if is_request then
      message.command = command_of(texts)
      message.name = texts[name_key(message.command) or ""]
      await_reply(waiting_requests(pinfo, true), message)
    else
      take_request(waiting_requests(pinfo, false), message)
    end
  end
  local of = is_request and message or message.request or {}
  if of.command then
    tree:add(field.command, range(0, 0), of.command):set_generated()
  end
  if of.name and of.name ~= "" then
    tree:add(field.name, range(0, 0), of.name):set_generated()
  end
  add_matching(message, is_request, range, tree)
  return summary(is_request, of.command, of.name, kind, texts, first)
end

local function add_bad(range, root, what)
  local tree = root:add(sorvane, range)
  tree:add(field.bad, range)
  tree:add_proto_expert_info(what)
end

-- ---- The dissector

local function is_to_server(pinfo)
  return pinfo.dst_port == pinfo.match
end

-- The bytes of the frame at this place, of which 8 are there. What is no frame takes all bytes that are there.
local function frame_bytes(tvb, pinfo, at)
  local range = tvb:range(at)
  return header_fault(range, is_to_server(pinfo)) and range:len() or 8 + range(4, 4):uint()
end

-- The list has a line for each packet, and a packet has a frame or many.
local listed = { packet = 0, frames = 0 }

local function add_to_list(pinfo, line)
  if listed.packet ~= pinfo.number then
    listed = { packet = pinfo.number, frames = 0 }
    pinfo.cols.info:set("")
  end
  listed.frames = listed.frames + 1
  if listed.frames <= most_listed + 1 then
    local separator = listed.frames > 1 and ", " or ""
    pinfo.cols.info:append(separator .. (listed.frames <= most_listed and line or "..."))
  end
end

local function dissect_frame(tvb, pinfo, root)
  local is_request = is_to_server(pinfo)
  local range = tvb:range()
  local what = header_fault(range, is_request)
  pinfo.cols.protocol = "Sorvane"
  if what then
    add_bad(range, root, what)
    add_to_list(pinfo, "no frame")
  else
    add_to_list(pinfo, add_message(range, pinfo, root, is_request))
  end
  return tvb:len()
end

function sorvane.dissector(tvb, pinfo, root)
  if tvb:len() ~= tvb:reported_len() then
    return 0 -- the capture has only the beginning of the segment
  end
  dissect_tcp_pdus(tvb, root, 8, frame_bytes, dissect_frame)
  return tvb:len()
end

-- ---- Ports

local tcp_ports = DissectorTable.get("tcp.port")
local registered

local function listen_on_ports()
  if registered ~= nil then
    tcp_ports:remove(registered, sorvane)
  end
  registered = sorvane.prefs.ports
  tcp_ports:add(registered, sorvane)
end

sorvane.prefs_changed = listen_on_ports
listen_on_ports()
