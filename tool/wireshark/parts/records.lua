-- -------------------------------------------------------------------------------------------- Parameters, records

local function name_of(id)
    return rows[id] and rows[id].name or string.format("0x%08x", id)
end

-- One value by the type that its identifier gives it. Bytes that do not fit the type are shown as bytes.
local function value_show(reader, tree, id, range)
    local kind = math.floor(id / 0x1000000) % 16
    local row = rows[id] or {}
    if data_blocks[row.name] then
        return block_show(tree, range)
    elseif kind == INTEGER and range:len() >= 4 then
        local word = range:range(0, 4)
        local value = reader:number(word, true)
        tree:add(v.int, word, value)
        return tostring(value)
    elseif kind == BOOLEAN and range:len() >= 4 then
        local value = reader:number(range:range(0, 4)) ~= 0
        tree:add(v.bool, range, value)
        return tostring(value)
    elseif kind == STRING then
        local text = printable((range:string(ENC_UTF_8):gsub("\0.*", "")))
        tree:add(v.text, range, text)
        return '"' .. text .. '"'
    elseif kind == HEX and row.content == "w" and range:len() % 4 == 0 then
        local words = {}
        for at = 0, range:len() - 4, 4 do
            local word = range:range(at, 4)
            words[#words + 1] = tostring(reader:number(word))
            tree:add(v.words, word, reader:number(word))
        end
        return table.concat(words, "/")
    end
    tree:add(v.bytes, range)
    return string.format("%d bytes", range:len())
end

local function parameters_show(reader, tree, summary)
    while reader:left() > 0 do
        local start = reader.at
        local id = reader:word()
        local length = reader:word()
        local padded = length + -length % 4
        if padded > reader:left() then
            error(string.format("%s says %d bytes, %d are left", name_of(id), length, reader:left()), 0)
        end
        local item = tree:add(v.id, reader.tvb:range(start, 4), id)
        item:set_len(8 + padded)
        item:add(v.name, reader.tvb:range(start, 4), name_of(id))
        if rows[id] then
            item:add(v.meaning, reader.tvb:range(start, 4), rows[id].meaning)
        end
        item:add(v.param_length, reader.tvb:range(start + 4, 4), length)
        local shown = name_of(id)
        if length > 0 then
            local value = value_show(reader, item, id, reader.tvb:range(reader.at, length))
            item:append_text(": " .. value)
            shown = shown .. "=" .. value
        end
        summary[#summary + 1] = shown
        reader:take(padded)
    end
end

-- The records by the argument that carries them: bytes of the head, and where the length stands in it.
local records = {
    signal = { head = 28, length = 24, class = 1 },
    event = { head = 20, length = 16, class = 2 },
    param_set_request = { head = 8, length = 4 },
    param_set_params = { head = 8, length = 4 },
    cnx_info = { head = 8, length = 4 },
    stream_info = { head = 16, length = 12 },
}

local function record_head_show(reader, tree, form, tvb, summary)
    local id = reader:number(tvb:range(4, 4))
    tree:add(v.endpoint, tvb:range(0, 4), reader:number(tvb:range(0, 4), true))
    tree:add(v.identifier, tvb:range(4, 4), id)
    tree:add(form.class == 1 and v.signal or v.event, tvb:range(4, 4), id)
    tree:add(v.name, tvb:range(4, 4), name_of(id))
    tree:add(v.line, tvb:range(8, 4), reader:number(tvb:range(8, 4)))
    if rows[id] then
        tree:add(v.meaning, tvb:range(4, 4), rows[id].meaning)
        summary[#summary + 1] = rows[id].meaning
    end
    summary[#summary + 1] = name_of(id)
    if form.class == 1 then
        local stops = reader:number(tvb:range(16, 4)) % 2 ~= 0
        tree:add(v.message_id, tvb:range(12, 4), reader:number(tvb:range(12, 4)))
        tree:add(v.stops, tvb:range(16, 4), stops)
        if stops then
            summary[#summary + 1] = "stops"
        end
    end
end

-- A record of a call or, of a parameter set, of an answer to "get".
local function record_show(reader, tree, argument, range, summary)
    local form = records[argument]
    local tvb = range:tvb()
    local record = tree:add(voice, range, "Voice record: " .. argument)
    local whole, why = pcall(function()
        if tvb:len() < form.head then
            error(string.format("%d bytes, the head alone has %d", tvb:len(), form.head), 0)
        end
        if form.class then
            record_head_show(reader, record, form, tvb, summary)
        elseif argument == "stream_info" then
            record:add(v.stream, tvb:range(0, 4), reader:number(tvb:range(0, 4)))
        end
        local length = reader:number(tvb:range(form.length, 4))
        record:add(v.length, tvb:range(form.length, 4), length)
        local arrived = tvb:len() - form.head
        if math.min(length, arrived) > 0 then
            local buffer = tvb:range(form.head, math.min(length, arrived)):tvb()
            parameters_show(reader_at(buffer, 0, reader.little), record, summary)
        end
        if length > arrived then
            error(string.format("%d bytes of parameters announced, %d arrived", length, arrived), 0)
        end
    end)
    if not whole then
        record:add_proto_expert_info(record_fault, "Malformed record: " .. tostring(why))
        summary[#summary + 1] = "[malformed]"
    end
end

local function codecs_show(reader, tree, range)
    local list = tree:add(voice, range, "Codecs, best first")
    for at = 0, range:len() - 16, 16 do
        local columns = { v.codec, v.payload_type, v.ptime_mask, v.max_bitrate }
        for column, field in ipairs(columns) do
            local word = range:range(at + 4 * (column - 1), 4)
            list:add(field, word, reader:number(word))
        end
    end
end
