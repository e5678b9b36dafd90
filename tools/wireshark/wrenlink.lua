-- Shows what travels between hosts and Quill adapters, as `quillsim --capture` writes it: each
-- request and what ended it, field by field. For Wireshark and tshark 4.0 and later.
--
-- A packet is kind, connection and request number, 32 bits each, low byte first, and the message.
-- The message of a request is control code and reply capacity, likewise, and the frame, whose two
-- lengths have the low byte first and all else the high byte; that of a completion is the status,
-- low byte first, and the reply.

local quill = Proto("wrenlink", "Quill adapter")

local kRequest, kCompletion, kClosed = 1, 2, 3
local kRead, kWrite, kCommandBits, kMgcmd = 0x0100, 0x0200, 0x0F00, 0x4100
local kPacketHead, kRequestHead, kCompletionHead = 12, 8, 4
local kFrameHead, kGap = 5, 2
local kShownWords, kShownEntries = 4, 4

local commandNames = {
    [0x0100] = "Read", [0x0200] = "Write", [0x0300] = "Set delay", [0x0400] = "XAP state",
    [0x0500] = "Get delay", [0x0600] = "Enter DFU mode", [0x0700] = "Get adapter id",
    [0x0800] = "Get firmware version", [0x0900] = "Set mode", [0x0E00] = "Select device",
    [0x0F00] = "Set command bits", [0x4000] = "MGCMD init", [0x4100] = "MGCMD",
}

local function field(make, name, ...) return make("wrenlink." .. name, ...) end

local fields = {
    kind = field(ProtoField.uint32, "kind", "Kind", base.DEC,
        { [kRequest] = "Request", [kCompletion] = "Completion", [kClosed] = "Closed" }),
    connection = field(ProtoField.uint32, "connection", "Connection"),
    request = field(ProtoField.uint32, "request", "Request number"),
    answeredIn = field(ProtoField.framenum, "answered_in", "Ended in", base.NONE,
        frametype.RESPONSE),
    answers = field(ProtoField.framenum, "answers", "Request in", base.NONE, frametype.REQUEST),
    time = field(ProtoField.relative_time, "time", "Time since the request"),
    controlCode = field(ProtoField.uint32, "control_code", "Control code", base.HEX),
    capacity = field(ProtoField.uint32, "capacity", "Room for reply bytes"),
    requestLength = field(ProtoField.uint16, "request_length", "Request length"),
    replyLength = field(ProtoField.uint16, "reply_length", "Reply length"),
    reserved = field(ProtoField.uint8, "reserved", "Reserved", base.HEX),
    code = field(ProtoField.uint16, "code", "Command", base.HEX, commandNames),
    gap = field(ProtoField.uint16, "gap", "Gap", base.HEX),
    address = field(ProtoField.uint16, "address", "Address", base.HEX),
    length = field(ProtoField.uint16, "length", "Length in words"),
    word = field(ProtoField.uint16, "word", "Word", base.HEX),
    selector = field(ProtoField.uint16, "selector", "Bits of", base.DEC,
        { [0] = "reads", [1] = "writes" }),
    bits = field(ProtoField.uint16, "bits", "Command bits", base.HEX),
    delay = field(ProtoField.uint16, "delay", "SPI delay"),
    xap = field(ProtoField.uint16, "xap", "XAP state word", base.HEX),
    id = field(ProtoField.uint32, "id", "Adapter id"),
    version = field(ProtoField.uint16, "version", "Firmware version", base.HEX),
    mode = field(ProtoField.uint16, "mode", "Mode", base.DEC, { [0] = "SPI", [1] = "JTAG" }),
    device = field(ProtoField.uint16, "device", "Multiplexed device"),
    first = field(ProtoField.uint16, "mgcmd.first", "First value", base.HEX),
    second = field(ProtoField.uint16, "mgcmd.second", "Second value", base.HEX),
    status = field(ProtoField.uint32, "status", "Status"),
    replyStatus = field(ProtoField.uint16, "reply_status", "Reply status", base.HEX),
}
for _, one in pairs(fields) do table.insert(quill.fields, one) end

local malformed = ProtoExpert.new("wrenlink.malformed", "Ends too early or says so wrongly",
    expert.group.MALFORMED, expert.severity.ERROR)
local refused = ProtoExpert.new("wrenlink.refused", "The request failed",
    expert.group.RESPONSE_CODE, expert.severity.WARN)
local reported = ProtoExpert.new("wrenlink.reported", "The adapter reports a failure",
    expert.group.RESPONSE_CODE, expert.severity.WARN)
local unanswered = ProtoExpert.new("wrenlink.unanswered", "The request was not answered",
    expert.group.SEQUENCE, expert.severity.WARN)
quill.experts = { malformed, refused, reported, unanswered }

-- What stands behind the code of a request, and behind the status of a reply, of the commands whose
-- fields are always the same.
local payloads = {
    [0x0300] = { request = { fields.delay } },
    [0x0400] = { reply = { fields.xap } },
    [0x0500] = { reply = { fields.delay } },
    [0x0600] = {},
    [0x0700] = { reply = { fields.id } },
    [0x0800] = { reply = { fields.version } },
    [0x0900] = { request = { fields.mode } },
    [0x0E00] = { request = { fields.device } },
    [0x4000] = { request = { fields.first, fields.second } },
}

-- How values read in one line; numbers in decimal unless it says so.
local texts = {
    [fields.version] = function(value)
        return string.format("%d.%d", math.floor(value / 256), value % 256)
    end,
    [fields.xap] = function(value) return value == 0 and "running" or "stopped" end,
    [fields.mode] = function(value) return value == 1 and "JTAG" or "SPI" end,
    [fields.first] = function(value) return string.format("0x%04x", value) end,
    [fields.second] = function(value) return string.format("0x%04x", value) end,
}

local interfaceOf = Field.new("frame.interface_name")
local timeOf = Field.new("frame.time_epoch")

-- Requests by interface and number: the frame, its time, the code and, of a batch, its entries.
local requests = {}
function quill.init() requests = {} end

-- Walks the bytes of a message from the front. A field that is not there whole is told as an expert
-- item, and reads as nil from then on.
local Cursor = {}
Cursor.__index = Cursor

function Cursor.new(bytes, tree)
    return setmetatable({ bytes = bytes, tree = tree, at = 0, whole = true }, Cursor)
end

function Cursor:left() return self.bytes:len() - self.at end

function Cursor:take(size)
    if self.whole and self:left() < size then
        self.whole = false
        self.tree:add_proto_expert_info(malformed)
    end
    if not self.whole then return nil end
    self.at = self.at + size
    return self.bytes(self.at - size, size)
end

function Cursor:big(one, size)
    local range = self:take(size or 2)
    if range then self.tree:add(one, range) end
    return range and range:uint()
end

function Cursor:little(one, size)
    local range = self:take(size)
    if range then self.tree:add_le(one, range) end
    return range and range:le_uint()
end

-- Adds so many words and returns the text of the first.
function Cursor:words(count)
    local all = count and count > 0 and self:take(2 * count)
    if not all then return "" end
    local branch = self.tree:add(quill, all, "Words: " .. count)
    -- Hundreds of items take long, and often nobody looks at them.
    local wanted = branch.visible or branch:referenced(fields.word)
    local shown = {}
    for i = 0, (wanted and count or math.min(count, kShownWords)) - 1 do
        local range = all(2 * i, 2)
        branch:add(fields.word, range)
        if i < kShownWords then table.insert(shown, string.format("%04x", range:uint())) end
    end
    return " = " .. table.concat(shown, " ") .. (count > kShownWords and " ..." or "")
end

-- Lets a function add the next fields to a branch of their own, titled with what it returns.
function Cursor:branch(add)
    local outer, start = self.tree, self.at
    self.tree = outer:add(quill, self.bytes(start), "")
    local title = add()
    self.tree:set_text(title)
    self.tree:set_len(self.at - start)
    self.tree = outer
    return title
end

local function nameOf(code) return commandNames[code] or string.format("Command 0x%04x", code) end

local function place(address, count)
    if not (address and count) then return " ?" end
    if count == 1 then return string.format(" [%04x]", address) end
    return string.format(" [%04x, %d words]", address, count)
end

-- Entry of a batch; notes what its part of the reply is made of.
local function addEntry(cursor, entries)
    return cursor:branch(function()
        local code = cursor:big(fields.code)
        if code == kCommandBits then
            local selector, bits = cursor:big(fields.selector), cursor:big(fields.bits)
            return string.format("%s bits 0x%x", selector == 0 and "Read" or "Write", bits or 0)
        end
        if code ~= kRead and code ~= kWrite then
            cursor.tree:add_proto_expert_info(malformed)
            cursor.whole = false
            return "Not an entry"
        end
        local address, count = cursor:big(fields.address), cursor:big(fields.length)
        local title = nameOf(code) .. place(address, count)
        if code == kRead then table.insert(entries, title) end
        return code == kRead and title or title .. cursor:words(count)
    end)
end

local function summary(titles)
    local shown = table.concat(titles, ", ", 1, math.min(#titles, kShownEntries))
    return #titles > kShownEntries and shown .. ", ... " .. #titles .. " in all" or shown
end

local function addBatch(cursor, request)
    local titles = {}
    request.entries = {}
    while cursor.whole and cursor:left() > 0 do
        if #titles > 0 then cursor:big(fields.gap) end
        table.insert(titles, addEntry(cursor, request.entries))
    end
    return summary(titles)
end

-- Adds fields of 16 bits, or of 32 for an id, and returns their text.
local function addFields(cursor, list)
    local shown = {}
    for _, one in ipairs(list or {}) do
        local value = cursor:big(one, one == fields.id and 4 or 2)
        if value then table.insert(shown, texts[one] and texts[one](value) or value) end
    end
    return #shown > 0 and ": " .. table.concat(shown, ", ") or ""
end

local function addRequest(cursor, request)
    cursor:little(fields.controlCode, 4)
    cursor:little(fields.capacity, 4)
    local frame = cursor:left()
    local requestLength = cursor:little(fields.requestLength, 2)
    cursor:little(fields.replyLength, 2)
    cursor:big(fields.reserved, 1)
    if requestLength and requestLength + kFrameHead - 1 ~= frame then
        cursor.tree:add_proto_expert_info(malformed)
    end
    if cursor:left() < 2 then return "No command" end
    local code = cursor.bytes(cursor.at, 2):uint()
    request.code = code
    if code == kRead or code == kWrite or code == kCommandBits then
        return addBatch(cursor, request)
    end
    cursor:big(fields.code)
    if code == kMgcmd then return nameOf(code) .. cursor:words(cursor:big(fields.length)) end
    return nameOf(code) .. addFields(cursor, (payloads[code] or {}).request)
end

local function addReplyStatus(cursor, bad)
    local status = cursor:big(fields.replyStatus)
    if status and bad(status) then
        cursor.tree:add_proto_expert_info(reported)
        return " failed"
    end
    return ""
end

local function addReadReply(cursor, title)
    return cursor:branch(function()
        local outcome = addReplyStatus(cursor, function(status) return status ~= kRead end)
        cursor:big(fields.address)
        return title .. outcome .. cursor:words(cursor:big(fields.length))
    end)
end

local function addReply(cursor, request)
    if request.entries then
        local titles = {}
        for _, title in ipairs(request.entries) do
            if cursor.whole then table.insert(titles, addReadReply(cursor, title)) end
        end
        return #titles == 0 and "Done" or summary(titles)
    end
    if not request.code then return "Reply to a request before the capture" end
    local name = nameOf(request.code)
    if cursor:left() == 0 then return name .. ": done" end
    local isBad = request.code == 0x0400 and function(status) return status ~= 0x0400 end
        or function(status) return request.code == kMgcmd and status == 0x4101 end
    local outcome = addReplyStatus(cursor, isBad)
    if request.code == kMgcmd then
        cursor:take(2)
        return name .. outcome .. cursor:words(math.floor(cursor:left() / 2))
    end
    return name .. outcome .. addFields(cursor, (payloads[request.code] or {}).reply)
end

local function addCompletion(cursor, request)
    local status = cursor:little(fields.status, 4)
    if status and status ~= 0 then
        cursor.tree:add_proto_expert_info(refused)
        return "Failed with " .. status
    end
    return status and addReply(cursor, request) or "Cut short"
end

local function addClosed(cursor)
    cursor.tree:add_proto_expert_info(unanswered)
    return "Closed without an answer"
end

-- Notes a request, or finds that which a packet ends, and links the two.
local function link(tree, pinfo, kind, number)
    local key = interfaceOf().value .. ":" .. number
    if kind == kRequest then
        local request = requests[key] or { frame = pinfo.number, time = timeOf().value }
        requests[key] = request
        if request.endedIn then tree:add(fields.answeredIn, request.endedIn):set_generated() end
        return request
    end
    local request = requests[key]
    if not request then return {} end
    request.endedIn = pinfo.number
    tree:add(fields.answers, request.frame):set_generated()
    tree:add(fields.time, timeOf().value - request.time):set_generated()
    return request
end

local adders = { [kRequest] = addRequest, [kCompletion] = addCompletion, [kClosed] = addClosed }

function quill.dissector(bytes, pinfo, root)
    pinfo.cols.protocol = "Quill"
    local tree = root:add(quill, bytes())
    local cursor = Cursor.new(bytes, tree)
    local kind = cursor:little(fields.kind, 4)
    local connection = cursor:little(fields.connection, 4)
    local number = cursor:little(fields.request, 4)
    if not number then return end
    local toAdapter = kind == kRequest
    pinfo.cols[toAdapter and "src" or "dst"] = "host " .. connection
    pinfo.cols[toAdapter and "dst" or "src"] = interfaceOf().value

    local request = link(tree, pinfo, kind, number)
    local text = adders[kind] and adders[kind](cursor, request) or "Unknown kind"
    if cursor.whole and cursor:left() > 0 then
        tree:add(bytes(cursor.at), "Further bytes: " .. cursor:left())
    end
    tree:append_text(", " .. text)
    pinfo.cols.info = text
end
