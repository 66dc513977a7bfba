-- ------------------------------------------------------------------------------------------------- Capture records

-- Version 1, numbers big-endian: 'v', version, kind, 0 | head's size (2), text's length (2) | process and connection
-- of sender and receiver (4 each) | copies lost (4) | lengths of the two names (1 each), 0 (2) | names, text; then the
-- message. Later versions may add to the head behind them.
local function ends_show(tvb, tree, summary)
    local from_connection, to_connection = tvb:range(12, 4):uint(), tvb:range(20, 4):uint()
    local from_listener = from_connection == 0
    local from_length, to_length = tvb:range(28, 1):uint(), tvb:range(29, 1):uint()
    local from = from_length > 0 and text_of(tvb:range(CAPTURE_HEAD, from_length)) or "?"
    local to = to_length > 0 and text_of(tvb:range(CAPTURE_HEAD + from_length, to_length)) or "?"
    tree:add(f.from, tvb:range(CAPTURE_HEAD - 4, 4 + from_length), from)
    tree:add(f.to, tvb:range(CAPTURE_HEAD - 4, 4 + from_length + to_length), to)
    tree:add(f.from_process, tvb:range(8, 4))
    tree:add(f.to_process, tvb:range(16, 4))
    tree:add(f.connection, from_listener and tvb:range(20, 4) or tvb:range(12, 4))
    summary[1] = from .. " > " .. to
    return {
        from = from,
        to = to,
        from_listener = from_listener,
        listener = tvb:range(from_listener and 8 or 16, 4):uint(),
        connection = from_listener and to_connection or from_connection,
        names = from_length + to_length,
    }
end

local function event_show(tvb, tree, ends, kind, summary)
    local lost = tvb:range(24, 4):uint()
    if lost > 0 then
        local item = tree:add(f.lost, tvb:range(24, 4))
        item:add_proto_expert_info(e.lost, string.format("%d copies lost before this one", lost))
    end
    summary[#summary + 1] = kinds[kind] or "unknown"
    local length = tvb:range(6, 2):uint()
    if length > 0 then
        local range = tvb:range(CAPTURE_HEAD + ends.names, length)
        local text = text_of(range)
        local item = tree:add(f.text, range, text)
        summary[#summary + 1] = text
        if kind == CLOSED then
            item:add_proto_expert_info(e.closed, text)
        end
    end
end

local function capture_show(tvb, pinfo, tree, summary)
    if tvb:len() < CAPTURE_HEAD or tvb:range(0, 1):string() ~= "v" then
        error("this is no record of a capture", 0)
    end
    local version, kind, head = tvb:range(1, 1):uint(), tvb:range(2, 1):uint(), tvb:range(4, 2):uint()
    if version > 1 then
        tree:add(f.capture_version, tvb:range(1, 1))
        tree:add_proto_expert_info(e.newer, "Captured by a newer voicectl: what it added is not shown")
    end
    tree:add(f.kind, tvb:range(2, 1))
    local ends = ends_show(tvb, tree, summary)
    event_show(tvb, tree, ends, kind, summary)
    if head < CAPTURE_HEAD or head > tvb:len() then
        error(string.format("a head of %d bytes in %d", head, tvb:len()), 0)
    end
    if head < tvb:len() then
        message_show(tvb:range(head):tvb(), pinfo, tree, ends, summary)
    elseif kind ~= LOST then
        tree:append_text(", an event of the bus")
    end
end

function kex.dissector(tvb, pinfo, root)
    pinfo.cols.protocol = "KEX"
    local tree = root:add(kex, tvb())
    local summary = {}
    local whole, why = pcall(capture_show, tvb, pinfo, tree, summary)
    if not whole then
        local place = "^.*:%d+: " -- in this file, of what Wireshark itself finds
        tree:add_proto_expert_info(e.malformed, "Malformed: " .. tostring(why):gsub(place, ""))
        summary[#summary + 1] = "[malformed]"
    end
    pinfo.cols.info = table.concat(summary, "  ")
    return tvb:len()
end
