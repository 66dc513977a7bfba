-- ------------------------------------------------------------------------------------------------------ Reading

-- Reads numbers of the order that a message's head names. A range beyond the end is an error, which the dissector
-- below turns into an expert note.
local Reader = {}
Reader.__index = Reader

local function reader_at(tvb, at, little)
    return setmetatable({ tvb = tvb, at = at, little = little }, Reader)
end

function Reader:left()
    return self.tvb:len() - self.at
end

function Reader:take(length)
    if length > self:left() then
        error(string.format("%d bytes announced, %d are left", length, self:left()), 0)
    end
    local range = self.tvb:range(self.at, length)
    self.at = self.at + length
    return range
end

function Reader:number(range, signed)
    if signed then
        return self.little and range:le_int() or range:int()
    end
    return self.little and range:le_uint() or range:uint()
end

function Reader:add(tree, field, length, signed)
    local range = self:take(length)
    local item = self.little and tree:add_le(field, range) or tree:add(field, range)
    return self:number(range, signed), item
end

function Reader:word()
    return self:number(self:take(4))
end

-- The bytes behind a length; no range when there are none.
function Reader:counted()
    local length = self:word()
    if length == 0 then
        return nil, self.tvb:range(self.at - 4, 4)
    end
    local range = self:take(length)
    return range, range
end

-- Controls, the second set of them too, and what changes how others show: direction marks, joiners, separators of lines,
-- byte order marks. They could steer a terminal.
local steering = {
    "%c", "\xC2[\x80-\x9F\xAD]", "\xD8\x9C", "\xE1\xA0\x8E", "\xE2\x80[\x8B-\x8F\xA8-\xAE]", "\xE2\x81[\xA0-\xAF]",
    "\xEF\xBB\xBF", "\xEF\xBF[\xB9-\xBB]", "\xF3\xA0[\x80\x81][\x80-\xBF]",
}

local function written_out(characters)
    return (characters:gsub(".", function(byte)
        return string.format("\\x%02X", byte:byte())
    end))
end

-- Of a first byte the fewest and the most that the second one may be, and how many follow, as UTF-8 has it.
local function followers(first)
    if first >= 0xC2 and first <= 0xDF then
        return 0x80, 0xBF, 1
    elseif first >= 0xE0 and first <= 0xEF then
        return first == 0xE0 and 0xA0 or 0x80, first == 0xED and 0x9F or 0xBF, 2
    elseif first >= 0xF0 and first <= 0xF4 then
        return first == 0xF0 and 0x90 or 0x80, first == 0xF4 and 0x8F or 0xBF, 3
    end
end

-- A byte beyond ASCII and those behind it that only follow others: what is no character is written out.
local function whole_character(bytes)
    local least, most, count = followers(bytes:byte())
    local second = bytes:byte(2)
    if count == nil or #bytes <= count or second < least or second > most then
        return written_out(bytes)
    end
    return bytes:sub(1, count + 1) .. written_out(bytes:sub(count + 2))
end

local function printable(text)
    text = text:gsub("[\x80-\xFF][\x80-\xBF]*", whole_character)
    for _, pattern in ipairs(steering) do
        text = text:gsub(pattern, written_out)
    end
    return text
end

local function text_of(range)
    return range and printable(range:string(ENC_UTF_8)) or ""
end

-- Returns the text and the item that shows it.
function Reader:text(tree, field)
    local range, place = self:counted()
    local text = text_of(range)
    return text, tree and tree:add(field, place, text)
end

-- ---------------------------------------------------------------------------------------------------- Data blocks

local function block_byte(digits, index)
    return tonumber(digits:sub(2 * index + 1, 2 * index + 2), 16)
end

-- The hexadecimal text of a data block of caller display, with the bus's checksum (the sum) or a line's (its two's
-- complement).
local function block_show(tree, range)
    local digits = range:string():gsub("\0.*", "")
    local count = math.floor(#digits / 2)
    if count < 3 or digits:find("%X") or block_byte(digits, 1) + 3 ~= count then
        tree:add_proto_expert_info(record_fault, "No whole data block")
        return ""
    end
    local sum = 0
    for index = 0, count - 2 do
        sum = (sum + block_byte(digits, index)) % 256
    end
    local carried = block_byte(digits, count - 1)
    tree:add(v.block_type, range:range(0, 2), block_byte(digits, 0))
    local shown, at = {}, 2
    while at + 2 <= count - 1 do
        local item, length = block_byte(digits, at), block_byte(digits, at + 1)
        if at + 2 + length > count - 1 then
            tree:add_proto_expert_info(record_fault, "An item runs past the data block")
            break
        end
        local place = range:range(2 * at, 2 * (2 + length))
        local label = block_items[item] or string.format("item 0x%02x", item)
        if block_texts[item] then
            local bytes = {}
            for index = at + 2, at + 1 + length do
                bytes[#bytes + 1] = string.char(block_byte(digits, index))
            end
            local text = printable(table.concat(bytes))
            tree:add(v.block_text, place, text):prepend_text(label .. ": ")
            shown[#shown + 1] = text
        else
            local value = length > 0 and block_byte(digits, at + 2) or 0
            tree:add(v.block_number, place, value):prepend_text(label .. ": ")
        end
        at = at + 2 + length
    end
    local item = tree:add(v.checksum, range:range(2 * (count - 1), 2), carried)
    local form = carried == sum and "sum" or carried == -sum % 256 and "complement" or "wrong"
    tree:add(v.checksum_form, range:range(2 * (count - 1), 2), form)
    item:append_text(string.format(" (%s; sum 0x%02x, complement 0x%02x)", form, sum, -sum % 256))
    if form == "wrong" then
        item:add_proto_expert_info(bad_block, "The checksum is neither the sum nor its two's complement")
    end
    return table.concat(shown, " ")
end
