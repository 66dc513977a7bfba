-- --------------------------------------------------------------------------------------------------------- Values

local value_readers = {}

-- Shows one value, and returns it as text and, of bytes, where they lie.
local function value_read(reader, tree, depth)
    local code = reader:take(1):uint()
    local read = value_readers[code]
    if read == nil then
        error(string.format("a value of type %d", code), 0)
    end
    return read(reader, tree, depth)
end

value_readers[0] = function(reader, tree)
    return '"' .. reader:text(tree, f.value_text) .. '"'
end
for code, form in pairs({ [3] = { 2, true }, [4] = { 4, true }, [7] = { 2 }, [8] = { 4 } }) do
    value_readers[code] = function(reader, tree)
        local range = reader:take(form[1])
        local value = reader:number(range, form[2])
        tree:add(form[2] and f.value_int or f.value_uint, range, value)
        return tostring(value)
    end
end
value_readers[10] = function(reader, tree)
    local range = reader:take(1)
    tree:add(f.value_bool, range, range:uint() ~= 0)
    return tostring(range:uint() ~= 0)
end
value_readers[13] = function(reader, tree, depth)
    if depth >= MOST_NESTING then
        error("lists are nested too deeply", 0)
    end
    local values = {}
    for _ = 1, reader:word() do
        values[#values + 1] = value_read(reader, tree, depth + 1)
    end
    return "[" .. table.concat(values, ", ") .. "]"
end
value_readers[18] = function(reader, tree)
    reader:take(4)
    local range = reader:take(4)
    local number = reader:number(range, true)
    tree:add(f.value_fd, range, number)
    return number < 0 and "-" or "fd " .. number
end
value_readers[19] = function(reader, tree)
    local range, place = reader:counted()
    if range then
        tree:add(f.value_bytes, place)
    end
    return string.format("%d bytes", range and range:len() or 0), range
end
value_readers[255] = function()
    return "none"
end

-- ------------------------------------------------------------------------------------------------------- Messages

-- Returns the function, and the plugin that it is about: who registers says so, others are named by their objects.
local function call_show(reader, tree, summary)
    local path = reader:text(tree, f.path)
    local plugin = path:match("^(.-)%.EndPoint%.") or path:match("^(.-)%.DSPPlugin")
    local name = reader:text(tree, f["function"])
    summary[#summary + 1] = name
    local endpoint = path:match("%.EndPoint%.(.*)$")
    if endpoint then
        summary[#summary + 1] = endpoint
    end
    for _ = 1, reader:take(1):uint() do
        local argument, item = reader:text(tree, f.argument)
        local shown, bytes = value_read(reader, item, 0)
        item:append_text(": " .. shown)
        plugin = argument == "plugin_name" and shown:match('^"(.*)"$') or plugin
        if bytes and records[argument] then
            record_show(reader, item, argument, bytes, summary)
        elseif bytes and argument == "codeclist" then
            codecs_show(reader, item, bytes)
        else
            summary[#summary + 1] = argument .. "=" .. shown
        end
    end
    return name, plugin
end

local function reply_show(reader, tree, name, summary)
    for _ = 1, reader:take(1):uint() do
        local code, item = reader:add(tree, f.error_code, 4)
        local description = reader:text(item, f.error_description)
        local info = reader:text(item, f.error_info)
        local sentence = string.format("%d %s: %s", code, description, info)
        item:add_proto_expert_info(e.error, sentence)
        summary[#summary + 1] = "error " .. sentence
    end
    if reader:take(1):uint() ~= 0 then
        local shown, bytes = value_read(reader, tree, 0)
        summary[#summary + 1] = "= " .. shown
        if bytes and name == "get" then
            record_show(reader, tree, "param_set_params", bytes, summary)
        end
    end
end

-- What joins an answer with its call: the two processes, the connection, the side that called, the serial.
local function key_of(ends, serial, from_listener)
    return table.concat({ ends.listener, ends.connection, from_listener and "out" or "in", serial }, " ")
end

-- The plugin that a peer has registered as; its process may have any name.
local function plugin_show(pinfo, tree, ends, plugin, summary)
    local peer = ends.listener .. " " .. ends.connection
    if not pinfo.visited then
        plugins[peer] = plugin or plugins[peer]
        plugin_of[pinfo.number] = plugins[peer]
    end
    plugin = plugin_of[pinfo.number]
    if plugin then
        tree:add(f.plugin, plugin):set_generated()
        summary[1] = ends.from_listener and ends.from .. " > " .. plugin or plugin .. " > " .. ends.to
    end
end

local function call_remember(pinfo, ends, serial, name)
    calls[key_of(ends, serial, ends.from_listener)] = { frame = pinfo.number, time = pinfo.rel_ts, name = name }
end

local function request_find(pinfo, message, ends, serial)
    if not pinfo.visited then
        -- Whoever waits has called; an answer comes from whom was called.
        local from_listener = ends.from_listener == (message == WAITING)
        local call = calls[key_of(ends, serial, from_listener)]
        request_of[pinfo.number] = call
        if call and message ~= WAITING then
            reply_of[call.frame] = pinfo.number
        end
    end
    return request_of[pinfo.number]
end

local function request_show(pinfo, tree, message, call, summary)
    local elapsed = pinfo.rel_ts - call.time
    tree:add(f.request_in, call.frame):set_generated()
    tree:add(f["function"], call.name):set_generated()
    local item = tree:add(f.rtt, elapsed):set_generated()
    table.insert(summary, 2, call.name)
    summary[#summary + 1] = string.format("after %.2f ms", elapsed * 1000)
    if message == WAITING then
        item:add_proto_expert_info(e.waits, string.format("waits for %s since %.1f s", call.name, elapsed))
    elseif elapsed > SLOW_SECONDS then
        item:add_proto_expert_info(e.slow, string.format("%s took %.1f s", call.name, elapsed))
    end
end

-- Joins the message with others of its call, and shows what kind it is.
local function body_show(reader, pinfo, tree, message, ends, serial, summary)
    local call = nil
    if message == REPLY or message == MISSED or message == WAITING then
        call = request_find(pinfo, message, ends, serial)
    end
    if call then
        request_show(pinfo, tree, message, call, summary)
    end
    local name, plugin
    if message == CALL or message == ONE_WAY then
        name, plugin = call_show(reader, tree, summary)
        if not pinfo.visited then
            call_remember(pinfo, ends, serial, name)
        end
        if reply_of[pinfo.number] then
            tree:add(f.reply_in, reply_of[pinfo.number]):set_generated()
        end
    elseif message == REPLY or message == MISSED then
        reply_show(reader, tree, call and call.name, summary)
    elseif message == REFUSED then
        local why, item = reader:text(tree, f.text)
        item:add_proto_expert_info(e.refused, why)
        summary[#summary + 1] = why
    elseif message == HELLO then
        reader:text(tree, f.text)
    end
    plugin_show(pinfo, tree, ends, plugin, summary)
end

local function message_show(tvb, pinfo, tree, ends, summary)
    if tvb:len() < MESSAGE_HEAD then
        error(string.format("%d bytes, a message's head alone has %d", tvb:len(), MESSAGE_HEAD), 0)
    end
    local order = tvb:range(2, 1):string()
    local reader = reader_at(tvb, 4, order == "l")
    tree:add(f.version, tvb:range(1, 1))
    tree:add(f.order, tvb:range(2, 1), order == "l" and "little" or order == "B" and "big" or "unknown")
    tree:add(f.message, tvb:range(3, 1))
    local serial = reader:add(tree, f.serial, 4)
    reader:add(tree, f.flags, 4)
    local size = reader:add(tree, f.size, 4)
    reader:add(tree, f.descriptors, 4)
    if tvb:range(0, 1):string() ~= "k" or (order ~= "l" and order ~= "B") then
        error("this is no message of the bus", 0)
    end
    if tvb:range(1, 1):uint() ~= 2 then
        tree:add_proto_expert_info(e.newer, "The bus's version is not 2: only the head is shown")
        return
    end
    body_show(reader, pinfo, tree, tvb:range(3, 1):uint(), ends, serial, summary)
    if size ~= tvb:len() or reader:left() > 0 then
        error(string.format("the head says %d bytes, %d came, %d are left", size, tvb:len(), reader:left()), 0)
    end
end
