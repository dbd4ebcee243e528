"""DrawText.py PORT TOPIC TEXT: draws a text by Pillow, and wishes it for the panels of a topic, such as
panel/1/shop-17/1-1/want/lcd/0 or panel/1/all/all/want/lcd/0.

It is there as soon as a panel is, and again after each time that one was away, until the wish is another."""
import io
import sys

from paho.mqtt.client import MQTTv5, Client
from paho.mqtt.packettypes import PacketTypes
from paho.mqtt.properties import Properties
from PIL import Image, ImageDraw


def draw(text, width=144, height=168, zoom=3):
    """A PNG file: dark on white, in the middle, in Pillow's own font, each pixel of which becomes zoom by zoom."""
    small = Image.new('1', (width // zoom, height // zoom), 1)
    canvas = ImageDraw.Draw(small)
    _, _, right, bottom = canvas.multiline_textbbox((0, 0), text)
    canvas.multiline_text(((small.width - right) // 2, (small.height - bottom) // 2), text, fill=0, align='center')
    file = io.BytesIO()
    small.resize((width, height), Image.NEAREST).save(file, 'PNG')
    return file.getvalue()


def wish(port, topic, picture):
    properties = Properties(PacketTypes.PUBLISH)
    properties.UserProperty = ('dither', 'threshold')  # text stays crisp
    client = Client(protocol=MQTTv5)
    client.connect('127.0.0.1', port)
    client.loop_start()
    client.publish(topic, picture, qos=1, retain=True, properties=properties).wait_for_publish(10)
    client.disconnect()
    client.loop_stop()


if __name__ == '__main__':
    port, topic, text = sys.argv[1:]
    wish(int(port), topic, draw(text))
