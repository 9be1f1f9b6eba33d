#!/usr/bin/python3
# vin-by-hand.py [HOST [PORT]]: prints the VIN, or why there is none, at each change. Needs python3-paho-mqtt only.
import sys
import paho.mqtt.client as mqtt

def number(data):  # takes a number from the front of a bytearray: 7 bits a byte, the lowest first
    return byte if (byte := data.pop(0)) < 0x80 else byte & 0x7f | number(data) << 7

def value(payload):  # field 1 of the protobuf body, which follows a header of 18 bytes; empty without a value
    data = bytearray(payload[18:])
    while data:
        field, content = number(data), number(data)  # number and type of the field; a number, or a text's length
        if field == 1 << 3 | 2:
            return data[:content].decode(errors="replace")
        del data[:content if field & 7 == 2 else 0]
    return ""

def show(state, problem=""):
    text = problem or state["vin"] or "no value yet"
    if text != state["shown"]:
        print(text, flush=True)
    state["shown"] = text

def on_connect(client, state, flags, code):
    state["vin"] = ""
    show(state, "" if code == 0 else mqtt.connack_string(code))
    # Each time: a restarted broker knows no subscription. Presence last: what it says is true now.
    client.subscribe([("system/var/vehicleid", 0), ("system/presence/quil", 1)])

def on_message(client, state, message):
    if message.topic == "system/var/vehicleid":
        state["vin"] = value(message.payload)
    show(state, "daemon off line" if message.payload == b"offline" else "")

client = mqtt.Client(userdata={"vin": "", "shown": "no connection"})
client.on_connect, client.on_message = on_connect, on_message
client.on_disconnect = lambda client, state, code: show(state, "no connection")
client.connect_async(*sys.argv[1:2] or ["localhost"], *map(int, sys.argv[2:3]))
print("no connection", flush=True)
client.loop_forever(retry_first_connection=True)
