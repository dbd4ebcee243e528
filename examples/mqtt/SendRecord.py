"""SendRecord.py PORT HOST PLACE TYPE TEXT: sends a record to a panel through the gateway, and says what became of it.

Without an answer the record is sent again with the same id, which the panel then does not have twice."""
import json
import queue
import sys
import uuid

from paho.mqtt.client import MQTTv5, Client
from paho.mqtt.packettypes import PacketTypes
from paho.mqtt.properties import Properties


class Panels:
    """A host's panels. Answers come on a thread of the client's."""

    def __init__(self, port, host):
        self._root = f'panel/1/{host}/'
        self._answers = queue.Queue()
        self._reply = f'{self._root}answer/{uuid.uuid4()}'
        self._client = Client(protocol=MQTTv5)
        self._client.on_connect = lambda client, *_: client.subscribe(self._reply, qos=1)
        self._client.on_subscribe = lambda *_: self._answers.put(None)
        self._client.on_message = lambda _client, _data, message: self._answers.put(message)
        self._client.connect('127.0.0.1', port)
        self._client.loop_start()
        self._answers.get(timeout=10)

    def send(self, place, record_type, payload, tries=5):
        properties = Properties(PacketTypes.PUBLISH)
        properties.ResponseTopic = self._reply
        properties.CorrelationData = uuid.uuid4().bytes
        for _ in range(tries):
            self._client.publish(f'{self._root}{place}/do/send/{record_type}', payload, qos=1, properties=properties)
            try:
                while (answer := self._answers.get(timeout=2)).properties.CorrelationData != properties.CorrelationData:
                    pass
                return json.loads(answer.payload)
            except queue.Empty:
                pass
        return {'answer': 'none'}


if __name__ == '__main__':
    port, host, place, record_type, text = sys.argv[1:]
    print(Panels(int(port), host).send(place, record_type, text)['answer'])
