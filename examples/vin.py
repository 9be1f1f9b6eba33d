#!/usr/bin/python3
# vin.py [HOST [PORT]]: prints the VIN, or why there is none, at each change.
# Needs python3-paho-mqtt and python3-protobuf, and beside this file what this makes of the messages:
#   protoc --proto_path=$(pkg-config --variable=protodir tolquil) --python_out=. ecu/tamu/pb/messages.proto
import sys
import paho.mqtt.client as mqtt
from ecu.tamu.pb.messages_pb2 import EcuVariable

VARIABLE, PRESENCE, HEADER_SIZE = "system/var/vehicleid", "system/presence/quil", 18
shown = value = ""


def show(text):
    global shown
    if text != shown:
        print(text, flush=True)
    shown = text


def on_connect(client, userdata, flags, code):
    global value
    value = "no value yet" if code == 0 else mqtt.connack_string(code)
    show(value)
    # Each time: a restarted broker knows no subscription. Presence last: what it says is true now.
    client.subscribe([(VARIABLE, 0), (PRESENCE, 1)])


def on_message(client, userdata, message):
    global value
    if message.topic == VARIABLE:
        value = EcuVariable.FromString(message.payload[HEADER_SIZE:]).value or "no value yet"
    show("daemon off line" if message.payload == b"offline" else value)


client = mqtt.Client()
client.on_connect, client.on_message = on_connect, on_message
client.on_disconnect = lambda *_: show("no connection")
client.connect_async(*sys.argv[1:2] or ["localhost"], *map(int, sys.argv[2:3]))
show("no connection")
client.loop_forever(retry_first_connection=True)
