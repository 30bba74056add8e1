-- Rx: a small synchronous reactive library, and the classes the host's Lua objects are made of.
--
-- Observables deliver tuples: onNext(...) keeps every value, nils included, and their count.
-- subscribe(onNext, onError, onCompleted) or subscribe({ onNext = f, onError = g,
-- onCompleted = h }) takes plain functions, any of them nil; an observer without onError ignores
-- errors. It returns a subscription whose unsubscribe() may be called any number of times.
-- Delivery is synchronous, in subscription order; unsubscribing takes effect at once, and a
-- subscriber added during a delivery first hears the next value. Errors raised by subscribers
-- reach the caller of onNext.
--
-- Rx.Observable.create(fn) makes a cold observable: fn(observer) runs for each subscription, calls
-- observer.onNext(...), observer.onError(e), observer.onCompleted(), and may return a cleanup
-- function or a subscription. Operators (distinctUntilChanged, filter, map, skip, take) are built
-- on it, so each subscription has its own state.
--
-- Rx.Class(name)(definition) makes a class; Class() or Class.new() makes an object. Function fields
-- of the definition are methods; other fields are copied into each object as defaults, except
-- that a subject default is not shared: each object gets a fresh subject of the same kind (and
-- buffer size, or initial value). Other table defaults are shared. The definition's array part
-- lists mixins, whose members count unless the definition (or an earlier mixin) has the same name.
-- Rx.Disposable is a mixin: obj:dispose() (once; obj:isDisposed() tells) runs obj:onDispose() if
-- there is one, unsubscribes the subscriptions in the object's fields, calls invalidateReference
-- on the native objects there and stops the pulses there. Objects of a class with this mixin are disposed when collected.
local Rx = {}

local function fail(message)
    error("Rx." .. message, 0)
end

local function pack(...)
    return { n = select("#", ...), ... }
end

local function noop() end

-- Subscriptions ----------------------------------------------------------------------------------

local Subscription = {}

local function newSubscription(action)
    local done = false
    return setmetatable({
        unsubscribe = function()
            if not done then
                done = true
                action()
            end
        end,
    }, Subscription)
end

local function isSubscription(value)
    return type(value) == "table" and getmetatable(value) == Subscription
end

-- Observables ------------------------------------------------------------------------------------

local Observable = {}
Observable.__index = Observable
Rx.Observable = Observable

local Subject = setmetatable({}, { __index = Observable })
Subject.__index = Subject
local BehaviorSubject = setmetatable({}, { __index = Subject })
BehaviorSubject.__index = BehaviorSubject
local ReplaySubject = setmetatable({}, { __index = Subject })
ReplaySubject.__index = ReplaySubject

local subjectKinds = { [Subject] = true, [BehaviorSubject] = true, [ReplaySubject] = true }

local function isSubject(value)
    return type(value) == "table" and subjectKinds[getmetatable(value)] == true
end

local function checkObservable(self, method)
    if not (isSubject(self) or (type(self) == "table" and getmetatable(self) == Observable)) then
        fail(method .. ": call it with ':' on an observable, not on " .. type(self))
    end
end

local function checkFunction(value, what, optional)
    if not (type(value) == "function" or (optional and value == nil)) then
        fail(what .. " must be a function" .. (optional and " or nil" or "") .. ", not " .. type(value))
    end
end

local function checkCount(value, what)
    if type(value) ~= "number" or value < 0 or value ~= math.floor(value) then
        fail(what .. " must be a whole number of at least 0, not " .. tostring(value))
    end
end

function Observable.create(subscribe)
    checkFunction(subscribe, "Observable.create: the subscribe argument")
    return setmetatable({ _producer = subscribe }, Observable)
end

function Observable:_subscribe(observer)
    return self._producer(observer)
end

-- The three callbacks of either form of subscribe; a subject given as the observer is fed.
local function callbacks(onNext, onError, onCompleted)
    if isSubject(onNext) then
        local subject = onNext
        return function(...) subject:onNext(...) end,
            function(e) subject:onError(e) end,
            function() subject:onCompleted() end
    elseif type(onNext) == "table" then
        onNext, onError, onCompleted = onNext.onNext, onNext.onError, onNext.onCompleted
    end
    checkFunction(onNext, "subscribe: onNext", true)
    checkFunction(onError, "subscribe: onError", true)
    checkFunction(onCompleted, "subscribe: onCompleted", true)
    return onNext or noop, onError or noop, onCompleted or noop
end

-- Every subscription goes through here: the observer it hands out stops delivering once the
-- subscription ends, by a terminal notification or by unsubscribe, and the ending runs the
-- cleanup, even when it comes before the subscribe function has returned it.
function Observable:subscribe(...)
    checkObservable(self, "subscribe")
    local onNext, onError, onCompleted = callbacks(...)
    local finished, cleanup = false, nil
    local function finish()
        if not finished then
            finished = true
            if cleanup then
                cleanup()
            end
        end
    end
    local observer = {
        onNext = function(...)
            if not finished then
                onNext(...)
            end
        end,
        onError = function(e)
            if not finished then
                finish()
                onError(e)
            end
        end,
        onCompleted = function()
            if not finished then
                finish()
                onCompleted()
            end
        end,
    }
    local result = self:_subscribe(observer)
    if isSubscription(result) then
        cleanup = result.unsubscribe
    elseif type(result) == "function" then
        cleanup = result
    elseif result ~= nil then
        fail("Observable.create: the subscribe function must return a function, a subscription or nothing, not " .. type(result))
    end
    if finished and cleanup then
        cleanup()
    end
    return newSubscription(finish)
end

-- An operator: onNext(observer, state, ...) handles each value of the source for one subscription.
local function operator(source, start, onNext)
    return Observable.create(function(observer)
        local state = start()
        if state.done then
            observer.onCompleted()
            return
        end
        return source:subscribe(function(...)
            onNext(observer, state, ...)
        end, observer.onError, observer.onCompleted)
    end)
end

function Observable:distinctUntilChanged(comparator)
    checkObservable(self, "distinctUntilChanged")
    checkFunction(comparator, "distinctUntilChanged: the comparator", true)
    local same = comparator or function(a, b) return a == b end
    return operator(self, function() return { seen = false } end, function(observer, state, ...)
        local value = (...)
        if state.seen and same(state.last, value) then
            return
        end
        state.seen, state.last = true, value
        observer.onNext(...)
    end)
end

function Observable:filter(predicate)
    checkObservable(self, "filter")
    checkFunction(predicate, "filter: the predicate")
    return operator(self, function() return {} end, function(observer, _, ...)
        if predicate(...) then
            observer.onNext(...)
        end
    end)
end

function Observable:map(fn)
    checkObservable(self, "map")
    checkFunction(fn, "map: the mapping")
    return operator(self, function() return {} end, function(observer, _, ...)
        observer.onNext(fn(...))
    end)
end

function Observable:skip(n)
    checkObservable(self, "skip")
    checkCount(n, "skip: the count")
    return operator(self, function() return { left = n } end, function(observer, state, ...)
        if state.left > 0 then
            state.left = state.left - 1
        else
            observer.onNext(...)
        end
    end)
end

function Observable:take(n)
    checkObservable(self, "take")
    checkCount(n, "take: the count")
    return operator(self, function() return { left = n, done = n == 0 } end, function(observer, state, ...)
        state.left = state.left - 1
        observer.onNext(...)
        if state.left == 0 then
            observer.onCompleted()
        end
    end)
end

-- Subjects ---------------------------------------------------------------------------------------

local function newSubject(kind, fields)
    fields._observers = {}
    return setmetatable(fields, kind)
end

function Rx.Subject()
    return newSubject(Subject, {})
end

function Rx.BehaviorSubject(...)
    return newSubject(BehaviorSubject, { _initial = pack(...), _value = pack(...) })
end

function Rx.ReplaySubject(size)
    if size ~= nil then
        checkCount(size, "ReplaySubject: the size")
    end
    return newSubject(ReplaySubject, { _size = size or math.huge, _buffer = {} })
end

-- Each kind says how it is made afresh, what it keeps of each value, and what a new subscriber
-- hears first.
function Subject:_remake() return Rx.Subject() end
function Subject:_keep() end
function Subject:_greeting() return {} end

function BehaviorSubject:_remake() return Rx.BehaviorSubject(unpack(self._initial, 1, self._initial.n)) end
function BehaviorSubject:_keep(values) self._value = values end
function BehaviorSubject:_greeting() return self._terminal and {} or { self._value } end

function BehaviorSubject:getValue()
    checkObservable(self, "getValue")
    return unpack(self._value, 1, self._value.n)
end

function ReplaySubject:_remake() return Rx.ReplaySubject(self._size) end

function ReplaySubject:_keep(values)
    local buffer = self._buffer
    buffer[#buffer + 1] = values
    if #buffer > self._size then
        table.remove(buffer, 1)
    end
end

function ReplaySubject:_greeting()
    local copy = {}
    for i, values in ipairs(self._buffer) do
        copy[i] = values
    end
    return copy
end

function Subject:_subscribe(observer)
    local observers = self._observers
    if not self._terminal then
        observers[#observers + 1] = observer
    end
    for _, values in ipairs(self:_greeting()) do
        observer.onNext(unpack(values, 1, values.n))
    end
    local terminal = self._terminal
    if terminal then
        observer[terminal.method](terminal.err)
        return nil
    end
    return function()
        for i, each in ipairs(self._observers) do
            if each == observer then
                table.remove(self._observers, i)
                return
            end
        end
    end
end

-- Delivers to the subscribers present when the delivery starts.
local function deliver(observers, method, ...)
    local present = {}
    for i, observer in ipairs(observers) do
        present[i] = observer
    end
    for _, observer in ipairs(present) do
        observer[method](...)
    end
end

function Subject:onNext(...)
    checkObservable(self, "onNext")
    if not self._terminal then
        self:_keep(pack(...))
        deliver(self._observers, "onNext", ...)
    end
end

local function terminate(self, method, err)
    checkObservable(self, method)
    if not self._terminal then
        self._terminal = { method = method, err = err }
        local observers = self._observers
        self._observers = {}
        deliver(observers, method, err)
    end
end

function Subject:onError(err)
    terminate(self, "onError", err)
end

function Subject:onCompleted()
    terminate(self, "onCompleted")
end

-- Classes ----------------------------------------------------------------------------------------

local METATABLE, DISPOSED, SENTINEL = {}, {}, {}

local Disposable = {}
Rx.Disposable = Disposable

local function checkObject(self, method)
    if type(self) ~= "table" then
        fail(method .. ": call it with ':' on an object, not on " .. type(self))
    end
end

-- Ends what the object holds: its own onDispose first, then its subscriptions, then the native
-- references it holds (which may be invalidated already).
function Disposable:dispose()
    checkObject(self, "dispose")
    if self[DISPOSED] then
        return
    end
    self[DISPOSED] = true
    if self.onDispose then
        self:onDispose()
    end
    local subscriptions, natives = {}, {}
    for key, value in pairs(self) do
        if isSubscription(value) then
            subscriptions[#subscriptions + 1] = value
        elseif type(value) == "userdata" and key ~= SENTINEL then
            natives[#natives + 1] = value
        end
    end
    for _, subscription in ipairs(subscriptions) do
        subscription.unsubscribe()
    end
    -- A native object is invalidated; a pulse, which has no such thing, is stopped.
    for _, native in ipairs(natives) do
        for _, name in ipairs({ "invalidateReference", "stop" }) do
            local ok, method = pcall(function() return native[name] end)
            if ok and type(method) == "function" then
                pcall(method, native)
                break
            end
        end
    end
end

function Disposable:isDisposed()
    checkObject(self, "isDisposed")
    return self[DISPOSED] == true
end

-- The sentinel's only reference to the object is through its own finalizer, a cycle that Lua 5.1
-- collects, so it never keeps the object alive.
local function disposeOnCollection(object)
    local sentinel = newproxy(true)
    getmetatable(sentinel).__gc = function()
        local ok, message = pcall(object.dispose, object)
        if not ok then
            io.stderr:write("Rx: dispose failed: ", tostring(message), "\n")
        end
    end
    object[SENTINEL] = sentinel
end

-- Adds the members of source that members lacks; keys 1 .. mixinCount are the mixin list.
local function absorb(members, source, className, mixinCount)
    for key, value in pairs(source) do
        if type(key) == "string" then
            if members[key] == nil then
                members[key] = value
            end
        elseif not (type(key) == "number" and key % 1 == 0 and key >= 1 and key <= (mixinCount or 0)) then
            fail("Class(" .. className .. "): member names must be strings, not " .. type(key) .. " " .. tostring(key))
        end
    end
end

function Rx.Class(name)
    if type(name) ~= "string" then
        fail("Class: the class name must be a string, not " .. type(name))
    end
    return function(definition)
        if type(definition) ~= "table" then
            fail("Class(" .. name .. "): the definition must be a table, not " .. type(definition))
        end
        local members, mixins = {}, 0
        for i, mixin in ipairs(definition) do
            if type(mixin) ~= "table" then
                fail("Class(" .. name .. "): mixin " .. i .. " must be a table, not " .. type(mixin))
            end
            mixins = i
        end
        absorb(members, definition, name, mixins)
        local disposable = false
        for i = 1, mixins do
            absorb(members, definition[i], name)
            disposable = disposable or definition[i] == Disposable
        end

        local methods, defaults = {}, {}
        for key, value in pairs(members) do
            if type(value) == "function" then
                methods[key] = value
            else
                defaults[key] = value
            end
        end

        local metatable = { __index = methods }
        function metatable.__tostring(object)
            -- The address as Lua shows a plain table.
            setmetatable(object, nil)
            local plain = tostring(object)
            setmetatable(object, metatable)
            return name .. ": " .. string.match(plain, "^table: (.*)$")
        end

        local function new()
            local object = {}
            for key, value in pairs(defaults) do
                object[key] = isSubject(value) and value:_remake() or value
            end
            setmetatable(object, metatable)
            if disposable then
                disposeOnCollection(object)
            end
            return object
        end

        return setmetatable({ className = name, new = new, [METATABLE] = metatable }, {
            __call = function() return new() end,
        })
    end
end

function Rx.isInstanceOf(object, class)
    if type(class) ~= "table" or class[METATABLE] == nil then
        fail("isInstanceOf: the second argument must be a class made by Rx.Class, not " .. type(class))
    end
    return type(object) == "table" and getmetatable(object) == class[METATABLE]
end

return Rx
