-- Shows captures of voicectl in Wireshark and tshark: what passes on the bus, and the voice records in it.
--
--     tshark -X lua_script:kexbus.lua -r calls.pcapng
--
-- Nothing else is needed beside it. Filters: kex.function == "create", voice.name == "al_ri", kex.rtt > 0.5.

-- Number, name without its prefix, meaning, and of a hex value whether it holds words or bytes.
local vocabulary = {
--@VOCABULARY@
}

local MOST_NESTING = 4 -- lists inside lists
local SLOW_SECONDS = 1 -- an answer that took longer is marked
local CAPTURE_HEAD = 32
local MESSAGE_HEAD = 20

local kinds = {
    "connected", "closed", "call", "one-way call", "reply", "refused", "waiting", "lost", "watching",
}
local message_kinds = {
    "hello", "call", "one-way call", "reply", "refused", "waiting", "tap hello", "tap record", "missed",
}
local CLOSED, LOST = 2, 8 -- kinds
local HELLO, CALL, ONE_WAY, REPLY, REFUSED, WAITING, MISSED = 1, 2, 3, 4, 5, 6, 9 -- kinds of messages
local INTEGER, STRING, HEX, BOOLEAN = 1, 2, 3, 4 -- types of values
local data_blocks = { andisp_data_db = true, andisp_dwa_ddb = true, fxo_ri_cid = true }
local block_types = { [0x80] = "call set-up", [0x82] = "message waiting" }
local block_items = {
    [0x01] = "time (MMDDhhmm)", [0x02] = "number", [0x03] = "called", [0x04] = "no number", [0x07] = "name",
    [0x08] = "no name", [0x0B] = "lamp", [0x11] = "call type", [0x13] = "messages",
}
local block_texts = { [0x01] = true, [0x02] = true, [0x03] = true, [0x07] = true }

local rows, names = {}, {}
for _, row in ipairs(vocabulary) do
    rows[row[1]] = { name = row[2], meaning = row[3], content = row[4] }
    names[row[1]] = row[2]
end

local kex = Proto("kexbus", "Kex bus")
local voice = Proto("voice", "Voice record")

local f = {
    kind = ProtoField.uint8("kex.kind", "Kind", base.DEC, kinds),
    capture_version = ProtoField.uint8("kex.capture_version", "Version of the capture"),
    from = ProtoField.string("kex.from", "From"),
    to = ProtoField.string("kex.to", "To"),
    from_process = ProtoField.int32("kex.from.process", "Process that sent it"),
    to_process = ProtoField.int32("kex.to.process", "Process that received it"),
    plugin = ProtoField.string("kex.plugin", "Plugin"),
    connection = ProtoField.uint32("kex.connection", "Connection at the listener"),
    lost = ProtoField.uint32("kex.lost", "Copies lost before"),
    text = ProtoField.string("kex.text", "Text"),
    version = ProtoField.uint8("kex.version", "Version"),
    order = ProtoField.string("kex.order", "Byte order"),
    message = ProtoField.uint8("kex.message", "Message", base.DEC, message_kinds),
    serial = ProtoField.uint32("kex.serial", "Serial"),
    flags = ProtoField.uint32("kex.flags", "Flags", base.HEX),
    size = ProtoField.uint32("kex.size", "Size"),
    descriptors = ProtoField.uint32("kex.descriptors", "Descriptors"),
    path = ProtoField.string("kex.path", "Path"),
    ["function"] = ProtoField.string("kex.function", "Function"),
    argument = ProtoField.string("kex.argument", "Argument"),
    value_text = ProtoField.string("kex.value.text", "Text"),
    value_int = ProtoField.int32("kex.value.int", "Number"),
    value_uint = ProtoField.uint32("kex.value.uint", "Number"),
    value_bool = ProtoField.bool("kex.value.bool", "Truth"),
    value_fd = ProtoField.int32("kex.value.fd", "Descriptor (of its sender)"),
    value_bytes = ProtoField.bytes("kex.value.bytes", "Bytes"),
    error_code = ProtoField.uint32("kex.error.code", "Error"),
    error_description = ProtoField.string("kex.error.description", "Description"),
    error_info = ProtoField.string("kex.error.info", "Info"),
    request_in = ProtoField.framenum("kex.request_in", "Call in", base.NONE, frametype.REQUEST),
    reply_in = ProtoField.framenum("kex.reply_in", "Answer in", base.NONE, frametype.RESPONSE),
    rtt = ProtoField.double("kex.rtt", "Time since the call (s)"),
}
kex.fields = f

local v = {
    endpoint = ProtoField.int32("voice.endpoint", "Endpoint"),
    identifier = ProtoField.uint32("voice.identifier", "Identifier", base.HEX, names),
    signal = ProtoField.uint32("voice.signal", "Signal", base.HEX, names),
    event = ProtoField.uint32("voice.event", "Event", base.HEX, names),
    name = ProtoField.string("voice.name", "Name"),
    meaning = ProtoField.string("voice.meaning", "Meaning"),
    line = ProtoField.uint32("voice.line", "Line"),
    message_id = ProtoField.uint32("voice.message_id", "Number of the message"),
    stops = ProtoField.bool("voice.stops", "Stops"),
    stream = ProtoField.uint32("voice.stream", "Stream"),
    length = ProtoField.uint32("voice.length", "Bytes of parameters"),
    id = ProtoField.uint32("voice.param", "Parameter", base.HEX, names),
    param_length = ProtoField.uint32("voice.param.length", "Bytes"),
    int = ProtoField.int32("voice.param.int", "Number"),
    text = ProtoField.string("voice.param.text", "Text"),
    words = ProtoField.uint32("voice.param.word", "Word"),
    bytes = ProtoField.bytes("voice.param.bytes", "Bytes"),
    bool = ProtoField.bool("voice.param.bool", "Truth"),
    block_type = ProtoField.uint8("voice.block.type", "Data block", base.HEX, block_types),
    block_text = ProtoField.string("voice.block.text", "Text"),
    block_number = ProtoField.uint32("voice.block.value", "Value"),
    checksum = ProtoField.uint8("voice.block.checksum", "Checksum", base.HEX),
    checksum_form = ProtoField.string("voice.block.checksum_form", "Checksum is"),
    codec = ProtoField.uint32("voice.codec", "Codec"),
    payload_type = ProtoField.uint32("voice.codec.payload_type", "Payload type"),
    ptime_mask = ProtoField.uint32("voice.codec.ptime_mask", "Packet times", base.HEX),
    max_bitrate = ProtoField.uint32("voice.codec.max_bitrate", "Bits a second"),
}
voice.fields = v

local e = {
    malformed = ProtoExpert.new("kex.malformed", "Malformed", expert.group.MALFORMED, expert.severity.ERROR),
    error = ProtoExpert.new("kex.answer_error", "Answered by an error", expert.group.RESPONSE_CODE,
        expert.severity.WARN),
    slow = ProtoExpert.new("kex.slow", "Slow answer", expert.group.SEQUENCE, expert.severity.WARN),
    waits = ProtoExpert.new("kex.waits", "Waits for an answer", expert.group.SEQUENCE, expert.severity.NOTE),
    lost = ProtoExpert.new("kex.copies_lost", "Copies lost before this one", expert.group.SEQUENCE,
        expert.severity.WARN),
    refused = ProtoExpert.new("kex.refused", "Refused", expert.group.SECURITY, expert.severity.WARN),
    closed = ProtoExpert.new("kex.closed", "Connection closed", expert.group.SEQUENCE, expert.severity.NOTE),
    newer = ProtoExpert.new("kex.newer", "Of a newer version", expert.group.UNDECODED, expert.severity.WARN),
}
kex.experts = e
local record_fault = ProtoExpert.new("voice.malformed", "Malformed record", expert.group.MALFORMED,
    expert.severity.ERROR)
local bad_block = ProtoExpert.new("voice.block.bad", "Checksum wrong", expert.group.CHECKSUM, expert.severity.WARN)
voice.experts = { record_fault, bad_block }

-- Calls by connection, direction and serial while the file is read for the first time; then what belongs to a frame.
local calls, request_of, reply_of = {}, {}, {}
local plugins, plugin_of = {}, {} -- by connection; what each frame is about

function kex.init()
    calls, request_of, reply_of = {}, {}, {}
    plugins, plugin_of = {}, {}
end
