"""React.py PORT HOST: does something about what the panels of a host send.

A record of type 20 is a key: its first byte is the key's number, and the lamp of that number, a keyed record
of type 7, goes on or off. One of type 21 is an alarm, which all panels of the host are sent."""
import sys

from paho.mqtt.client import MQTTv5, Client


class Reactions:
    """To one host's panels. All is called on the client's thread."""

    def __init__(self, host):
        self._root = f'panel/1/{host}/'
        self._actions = {20: self._press, 21: self._alarm}
        self._lamps = set()

    def start(self, client):
        for record_type in self._actions:
            client.subscribe(f'{self._root}+/got/{record_type}', qos=1)

    def take(self, client, message):
        place, _, record_type = message.topic[len(self._root):].split('/')
        self._actions[int(record_type)](client, place, message.payload)

    def _press(self, client, place, payload):
        if not payload:
            return
        lamp = place, payload[0]
        self._lamps ^= {lamp}
        client.publish(f'{self._root}{place}/do/set/7/{payload[0]}', b'on' if lamp in self._lamps else b'off', qos=1)

    def _alarm(self, client, place, payload):
        client.publish(f'{self._root}all/do/send/21', payload, qos=1)


if __name__ == '__main__':
    port, host = sys.argv[1:]
    reactions = Reactions(host)
    client = Client(protocol=MQTTv5)
    client.on_connect = lambda client, *_: reactions.start(client)  # again after each loss of the broker
    client.on_subscribe = lambda *_: print('listening', flush=True)
    client.on_message = lambda client, _data, message: reactions.take(client, message)
    client.connect('127.0.0.1', int(port))
    client.loop_forever()
