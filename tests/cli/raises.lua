-- With arguments, prints its name and arguments; without, raises.
local a, b = ...
if a == nil then
    error("boom from the script")
end
print(string.match(arg[0], "[^/]+$") .. " " .. a .. " " .. b .. " " .. #arg)
