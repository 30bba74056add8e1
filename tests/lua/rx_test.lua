-- The host's Rx, KyObservations and KyPreferences modules as Lua code in the host meets them.
local T = dofile(string.match(arg[0], "^(.*)/") .. "/testlib.lua")
local Rx = import("Rx")
local KyObservations = import("KyObservations")
local KyPreferences = import("KyPreferences")

-- An observer that records each notification as text (values joined with ",", nils shown), so
-- whole tuples compare; heard() gives the record so far joined with "|".
local function recorder()
    local log = {}
    local function add(...) log[#log + 1] = T.tuple(...) end
    local observer = { onNext = add, onError = function(e) add("error " .. e) end, onCompleted = function() add("done") end }
    return observer, function() return table.concat(log, "|") end
end

local function feed(subject, tuples)
    for _, tuple in ipairs(tuples) do subject:onNext(unpack(tuple, 1, tuple.n or #tuple)) end
end

-- What a new subscriber to observable hears at once.
local function greeting(observable)
    local observer, heard = recorder()
    observable:subscribe(observer)
    return heard()
end

T.case("subjects keep whole tuples and greet new subscribers by kind", function()
    local s = Rx.Subject()
    local observer, heard = recorder()
    s:subscribe(observer)
    feed(s, { { n = 1 }, { 1, nil, 3, nil, n = 4 }, { n = 0 } })
    T.eq(heard(), "nil|1,nil,3,nil|")

    local b = Rx.BehaviorSubject("a", nil)
    T.eq(greeting(b), "a,nil")
    b:onNext("b", 2)
    T.eq(greeting(b), "b,2")
    T.eq(select("#", b:getValue()), 2, "getValue count")

    -- { size, tuples fed, greeting }
    for _, row in ipairs({
        { 1, { { n = 1 } }, "nil" },
        { 1, { { 1 }, { n = 1 } }, "nil" },
        { 2, { { 1 }, { 2, "x" }, { 3 } }, "2,x|3" },
        { 0, { { 1 } }, "" },
        { nil, { { n = 1 }, { 2 }, { n = 0 } }, "nil|2|" },
    }) do
        local r = Rx.ReplaySubject(row[1])
        feed(r, row[2])
        T.eq(greeting(r), row[3], "ReplaySubject(" .. tostring(row[1]) .. ")")
    end
end)

T.case("terminal notifications end subjects and reach late subscribers", function()
    local r = Rx.ReplaySubject(2)
    local observer, heard = recorder()
    r:subscribe(observer)
    r:onNext(1)
    r:onError("broken")
    r:onNext(2)
    r:onCompleted()
    T.eq(heard(), "1|error broken")
    T.eq(greeting(r), "1|error broken", "replay, then the error")
    local b = Rx.BehaviorSubject(1)
    b:onCompleted()
    T.eq(greeting(b), "done", "a finished BehaviorSubject gives no value")
    r:subscribe(function() end) -- no onError: the error is not raised
end)

T.case("delivery: unsubscribing and subscribing during a delivery, raising subscribers", function()
    local s = Rx.Subject()
    local calls, second = {}, nil
    s:subscribe(function(v)
        calls[#calls + 1] = "first " .. v
        second:unsubscribe()
        second:unsubscribe()
        s:subscribe(function(w) calls[#calls + 1] = "added " .. w end)
    end)
    second = s:subscribe(function(v) calls[#calls + 1] = "second " .. v end)
    s:onNext(1)
    T.eq(table.concat(calls, "|"), "first 1")
    s:onNext(2)
    T.eq(table.concat(calls, "|"), "first 1|first 2|added 2")

    local failing = Rx.Subject()
    failing:subscribe(function() error("subscriber failed", 0) end)
    T.raises(function() failing:onNext(1) end, "subscriber failed")
end)

T.case("operators, with state per subscription", function()
    local lower = function(a, b) return string.lower(a) == string.lower(b) end
    -- { name, operator applied to a subject, tuples fed, what a subscriber hears }
    for _, row in ipairs({
        { "distinct", function(s) return s:distinctUntilChanged() end,
            { { n = 1 }, { n = 1 }, { 1, "a" }, { 1, "b" }, { n = 1 } }, "nil|1,a|nil" },
        { "comparator", function(s) return s:distinctUntilChanged(lower) end, { { "A" }, { "a" }, { "B" } }, "A|B" },
        { "filter", function(s) return s:filter(function(a, b) return a < b end) end, { { 1, 2 }, { 3, 2 } }, "1,2" },
        { "map", function(s) return s:map(function(a, b) return b, nil, a end) end, { { 1, 2 } }, "2,nil,1" },
        { "skip", function(s) return s:skip(2) end, { { 1 }, { 2 }, { n = 1 }, { 4 } }, "nil|4" },
        { "take", function(s) return s:take(2) end, { { 1 }, { n = 1 }, { 3 } }, "1|nil|done" },
        { "take 0", function(s) return s:take(0) end, { { 1 } }, "done" },
    }) do
        local source = Rx.Subject()
        local observable = row[2](source)
        for round = 1, 2 do
            local observer, heard = recorder()
            observable:subscribe(observer)
            feed(source, row[3])
            T.eq(heard(), row[4], row[1] .. ", subscription " .. round)
        end
    end
end)

T.case("a value the filter rejects is still the last one distinctUntilChanged saw", function()
    local position = Rx.Subject()
    local seen = {}
    position:distinctUntilChanged():filter(function(p) return p ~= "hidden" end)
        :subscribe(function(p) seen[#seen + 1] = p end)
    feed(position, { { "a" }, { "a" }, { "hidden" }, { "hidden" }, { "a" } })
    T.eq(table.concat(seen, "|"), "a|a")
end)

T.case("take and unsubscribe end the source subscription, even while it is being made", function()
    local active = 0
    local counting = Rx.Observable.create(function(observer)
        active = active + 1
        observer.onNext("now")
        observer.onNext("again")
        return function() active = active - 1 end
    end)
    local relay = Rx.ReplaySubject()
    counting:take(1):subscribe(relay)
    T.eq(greeting(relay), "now|done", "a subject subscribes as an observer")
    T.eq(active, 0, "take stopped listening")
    local subscription = counting:map(string.upper):subscribe(function() end)
    T.eq(active, 1)
    subscription:unsubscribe()
    subscription:unsubscribe()
    T.eq(active, 0, "unsubscribing the operator unsubscribes the source")
end)

T.case("classes: defaults, fresh subjects, mixins, names", function()
    local mixin = { describe = function() return "mixin" end, size = 1, shade = "grey" }
    local Thing = Rx.Class("Thing")({ mixin, size = 2, changed = Rx.ReplaySubject(2), current = Rx.BehaviorSubject(7) })
    local module = { create = Thing }
    local a, b = module.create(), Thing.new()
    T.eq(Thing.className, "Thing")
    T.eq(a.size, 2, "the definition wins over its mixin")
    T.eq(a.shade .. " " .. a:describe(), "grey mixin")
    assert(a.changed ~= b.changed and a.current ~= b.current, "each object has its own subjects")
    feed(a.changed, { { 1 }, { 2 }, { 3 } })
    T.eq(greeting(a.changed) .. " " .. greeting(b.current), "2|3 7", "same kind, buffer size and initial value")
    assert(string.find(tostring(a), "^Thing: 0?x?%x+$"), tostring(a))
    T.eq(Rx.isInstanceOf(a, Thing), true)
    T.eq(Rx.isInstanceOf(a, Rx.Class("Other")({})), false)
end)

T.case("disposal: onDispose, subscriptions, native references; when collected", function()
    local order = {}
    local function native(index)
        local proxy = newproxy(true)
        getmetatable(proxy).__index = index
        return proxy
    end
    local Holder = Rx.Class("Holder")({ Rx.Disposable, onDispose = function() order[#order + 1] = "onDispose" end })
    local holder = Holder()
    local source = Rx.Subject()
    holder.subscription = source:subscribe(function() order[#order + 1] = "value" end)
    holder.image = native({ invalidateReference = function() order[#order + 1] = "invalidated" end })
    holder.stale = native({ invalidateReference = function() error("Invalidate") end })
    holder.foreign = native(function() error("foreign userdata") end)
    holder:dispose()
    holder:dispose()
    source:onNext(1)
    T.eq(table.concat(order, "|"), "onDispose|invalidated")
    T.eq(holder:isDisposed(), true)

    local Broken = Rx.Class("Broken")({ Rx.Disposable, onDispose = function() error("cannot", 0) end })
    local written, stderr = {}, io.stderr
    io.stderr = { write = function(_, ...) written[#written + 1] = table.concat({ ... }) end }
    order = {}
    Holder()
    Broken()
    collectgarbage("collect")
    collectgarbage("collect")
    io.stderr = stderr
    T.eq(table.concat(order, "|"), "onDispose", "an unreferenced object is disposed")
    T.eq(table.concat(written), "Rx: dispose failed: cannot\n", "a failing dispose is reported, not raised")
end)

T.case("misuse raises clear errors", function()
    local s = Rx.Subject()
    for _, row in ipairs({
        { function() Rx.Class(3) end, "Rx.Class: the class name must be a string, not number" },
        { function() Rx.Class("X")({ 1 }) end, "Rx.Class(X): mixin 1 must be a table, not number" },
        { function() Rx.ReplaySubject(-1) end, "Rx.ReplaySubject: the size must be a whole number of at least 0, not -1" },
        { function() s:map(3) end, "Rx.map: the mapping must be a function, not number" },
        { function() s.onNext(1) end, "Rx.onNext: call it with ':' on an observable, not on number" },
        { function() s:subscribe(1) end, "Rx.subscribe: onNext must be a function or nil, not number" },
        { function() Rx.Observable.create(function() return 1 end):subscribe() end,
            "Rx.Observable.create: the subscribe function must return a function, a subscription or nothing, not number" },
        { function() Rx.isInstanceOf({}, {}) end, "Rx.isInstanceOf: the second argument must be a class made by Rx.Class, not table" },
        { function() KyObservations.addObserver(nil, "k", print) end, "KyObservations.addObserver: object must be a table or userdata, not nil" },
        { function() KyObservations.notifyObservers({}, 1) end, "KyObservations.notifyObservers: key must be a string, not number" },
        { function() KyObservations.addObserver({}, "k") end, "KyObservations.addObserver: observer must be a function, not nil" },
        { function() KyPreferences.user:set("k", {}) end, "KyPreferences.user.set: 'k' can hold nil, a boolean, a number or a string, not a table" },
    }) do
        T.raises(row[1], row[2])
    end
end)

T.case("KyObservations: order, changes during a notification, weak objects", function()
    local object, calls = {}, {}
    local function record(name)
        return function(o, key, value) calls[#calls + 1] = name .. ":" .. key .. "=" .. tostring(value) .. (o == object and "" or "?") end
    end
    local late, second
    local first = KyObservations.addObserver(object, "k", function(...)
        record("first")(...)
        late = late or KyObservations.addObserver(object, "k", record("late"))
        second.remove()
    end)
    second = KyObservations.addObserver(object, "k", record("second"))
    KyObservations.addObserver(object, "other", record("other"))
    KyObservations.notifyObservers(object, "k", 1)
    T.eq(table.concat(calls, " "), "first:k=1 second:k=1", "changes wait for the next notification")
    calls = {}
    first:remove()
    first.remove()
    KyObservations.notifyObservers(object, "k", nil)
    T.eq(table.concat(calls, " "), "late:k=nil")

    local watched = setmetatable({}, { __mode = "k" })
    local target = {}
    watched[target] = true
    KyObservations.addObserver(target, "k", function(o) return o end)
    target = nil
    collectgarbage("collect")
    T.eq(next(watched), nil, "observing keeps nothing alive")
end)

T.case("KyPreferences.user", function()
    local user = KyPreferences.user
    T.eq(user:get("unset", "fallback"), "fallback")
    for _, value in ipairs({ false, 0, "text", true }) do
        user:set("key", value)
        T.eq(user:get("key", "fallback"), value)
    end
    user.set("key", nil)
    T.eq(user.get("key", 5), 5, "nil forgets; the dot form works too")
end)

T.finish()
