#!/bin/sh
# An agent without a library, for what published agents don't do on request: the prompt's first word says what. It
# answers a cancel, and what it is asked in the middle of a turn once a permission was given.

say() { printf '%s\n' "$1"; }
answer() { say "{\"jsonrpc\":\"2.0\",\"id\":$1,\"result\":$2}"; }
update() { say "{\"jsonrpc\":\"2.0\",\"method\":\"session/update\",\"params\":{\"sessionId\":\"s\",\"update\":$1}}"; }
words() { update "{\"sessionUpdate\":\"agent_message_chunk\",\"content\":{\"type\":\"text\",\"text\":\"$1\"}}"; }
permission() {
    say "{\"jsonrpc\":\"2.0\",\"id\":\"$1\",\"method\":\"session/request_permission\",\"params\":{\"sessionId\":\"s\",\"toolCall\":{\"toolCallId\":\"c\",\"title\":\"Tool $1\"},\"options\":[$2]}}"
}
both='{"optionId":"yes","name":"Yes","kind":"allow_once"},{"optionId":"no","name":"No","kind":"reject_once"}'

while read -r line; do
    id=${line#*\"id\":}
    id=${id%%,*}
    case $line in
    *'"method":"initialize"'*) answer "$id" '{"protocolVersion":1,"_meta":{"steering":{"supported":true}}}' ;;
    *'"method":"session/new"'*)
        case $line in *OPENALEX_API_KEY*) key=" with a key" ;; esac
        answer "$id" '{"sessionId":"s"}'
        ;;
    *'"method":"session/cancel"'*) answer "$turn" '{"stopReason":"cancelled"}' ;;
    *'"method":"_session/steering"'*) steering=$id && permission steered "$both" ;;
    *'"method":"session/prompt"'*)
        turn=$id
        case $line in
        *'"text":"deaf'*)
            trap '' TERM
            words "I hear nothing"
            while :; do sleep 1; done
            ;;
        *'"text":"die'*) exit 3 ;;
        *'"text":"fail'*) say "{\"jsonrpc\":\"2.0\",\"id\":$id,\"error\":{\"code\":-32603,\"message\":\"out of quota\"}}" ;;
        *'"text":"flood'*)
            update '{"sessionUpdate":"plan","entries":[{"content":"Flood","status":"pending","priority":"high"}]}'
            while words "line\\n"; do :; done
            ;;
        *'"text":"two'*) permission first "$both" && permission second "$both" ;;
        *'"text":"none'*) permission empty "" ;;
        *'"text":"slow'*) sleep 2 && answer "$id" '{"stopReason":"end_turn"}' ;;
        *'"text":"wait'*) words "Waiting" ;;
        *) words "Done${key-}" && answer "$id" '{"stopReason":"end_turn"}' ;;
        esac
        ;;
    *'"id":"steered"'*)
        answer "$steering" '{"outcome":"injected"}'
        words "Steered" && answer "$turn" '{"stopReason":"end_turn"}'
        ;;
    *'"id":"first"'*) case $line in *'"no"'*) words "First refused. " ;; esac ;;
    *'"id":"second"'*) case $line in *'"yes"'*) words "Second given" ;; esac && answer "$turn" '{"stopReason":"end_turn"}' ;;
    *'"id":"empty"'*) case $line in *'"cancelled"'*) words "None given" ;; esac && answer "$turn" '{"stopReason":"end_turn"}' ;;
    esac
done
